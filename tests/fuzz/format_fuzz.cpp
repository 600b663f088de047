// Any bytes as a value and a format: the first byte chooses the value's type, eight more are a
// number or begin a string of that many bytes, the rest is the format. Whatever it says, STR_FMT
// answers with a text or with error 9.
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "kestrin/strings.h"
#include "strings/scratch.h"
#include "vm/handler.h"

HANDLER(str_fmt);

namespace {

using words = std::vector<ULO>;

ULO word_of(fcall handler) { return reinterpret_cast<ULO>(handler); }

words string_node(std::string_view text)
{
    words node(2 + text.size() / 8 + 1);
    node[0] = word_of(func__dummy_s);
    node[1] = text.size();
    if (!text.empty()) memcpy(&node[2], text.data(), text.size());
    return node;
}

words value_node(UCH type, std::string_view *rest)
{
    ULO number = 0;
    const ULO size = rest->size() < sizeof number ? rest->size() : sizeof number;
    memcpy(&number, rest->data(), size);
    rest->remove_prefix(size);
    if (type % 4 == 0) return {word_of(func__dummy_i), number};
    if (type % 4 == 1) return {word_of(func__dummy_f), number};
    if (type % 4 == 2) return {word_of(func__dummy_z)};
    const std::string text(rest->substr(0, number % 64));
    rest->remove_prefix(text.size());
    return string_node(text);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0) return 0;
    setup_quarne_thread_safe_functionality_for_local_thread();
    std::string_view rest(reinterpret_cast<const CHR *>(data) + 1, size - 1);
    // Widths that are legal and huge would only measure the memory of the machine.
    const words value = value_node(data[0], &rest);
    ULO digits = 0;
    for (CHR c : rest) {
        digits = c >= '0' && c <= '9' ? digits + 1 : 0;
        if (digits > 5) return 0;
    }
    const words format = string_node(rest);
    const words node = {word_of(func__str_fmt), reinterpret_cast<ULO>(format.data()),
                        reinterpret_cast<ULO>(value.data())};
    kestrin_data result = owning_slot;
    rt_ctrl->rt_noterror = 1;
    rt_ctrl->rt_error_code = 0;
    call(node.data(), &result);
    const bool failed = !rt_ctrl->rt_noterror && rt_ctrl->rt_error_code == 9;
    const bool answered =
        rt_ctrl->rt_noterror && result.type == 'S' && strlen(result.svalue) == len(result.svalue);
    if (!failed && !answered) abort();
    free_kst_data(&result);
    return 0;
}
