// Any bytes as a value and a format: the first byte chooses the value's type, eight more are a
// number or begin a string of that many bytes, the rest is the format. Whatever it says, STR_FMT
// answers with a text or with error 9.
#include <cstring>

#include "tests/fuzz/fuzz.h"
#include "tests/kit/runner.h"

namespace {

// A string constant: its escapes are resolved by the compiler.
std::string quoted(std::string_view bytes)
{
    return "\"" + kit::passed(bytes, [](CHR **targ) { strunraw(targ, *targ); }) + "\"";
}

std::string value(input *in)
{
    const UCH type = in->byte() % 4;
    const std::string_view bytes = in->text(sizeof(ULO));
    ULO number = 0;
    memcpy(&number, bytes.data(), bytes.size());
    if (type == 0) return std::to_string(SLO(number));
    if (type == 1) return "(DUMP_S2F " + quoted(bytes) + ")";
    return type == 2 ? "NIL" : quoted(in->text(number % 64));
}

// Widths that are legal and huge would only measure the memory of the machine.
bool is_narrow(std::string_view format)
{
    ULO digits = 0;
    for (CHR c : format)
        if ((digits = c >= '0' && c <= '9' ? digits + 1 : 0) > 5) return false;
    return true;
}

} // namespace

void try_input(std::string_view bytes)
{
    input in = {bytes};
    const std::string of = value(&in);
    if (!is_narrow(in.rest)) return;
    const auto done = kit::run_text("(STR_FMT " + quoted(in.rest) + " " + of + ")", false);
    require(done.error_code == 9 || done.value.starts_with("S "));
}
