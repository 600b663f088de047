#include "workshop/run_error.h"

#include <algorithm>
#include <string>

#include "kestrin/strings.h"
#include "strings/scratch.h"
#include "workshop/origins.h"

namespace {

// The error's text; what it says of offsets is left out where a place says it better.
std::string error_text(bool has_place)
{
    const rt_control *rt = rt_ctrl;
    std::string text = notempty(rt->rt_error_text) ? rt->rt_error_text : "Unknown error.";
    const auto place = std::min(text.rfind(" (Fnc="), text.rfind(" (Dbg="));
    if (has_place && place != text.npos && text.back() == ')') text.resize(place);
    return "runtime error " + std::to_string(rt->rt_error_code) + ": " + text;
}

void print_call(FILE *stream, const origin &call, ULO times)
{
    if (call.file == nullptr) return;
    const std::string_view name = call.text();
    fprintf(stream, "%s:%lu:%lu: `%.*s' is called here", call.file->name.c_str(), call.line(),
            call.at.column, int(name.size()), name.data());
    if (times > 1) fprintf(stream, " (%lu times)", times);
    putc('\n', stream);
}

// A recursion is one line for each half that is kept of it.
void print_calls(FILE *stream, const origins &known, const error_trail &trail)
{
    for (ULO i = 0; i < trail.count;) {
        if (!trail.keeps(i)) {
            const ULO left_out = trail.count - 2 * error_trail::half;
            fprintf(stream, "... %lu more calls ...\n", left_out);
            i += left_out;
        }
        const ULO *call = trail.call(i);
        ULO times = 0;
        while (i < trail.count && trail.keeps(i) && trail.call(i) == call) i++, times++;
        print_call(stream, known.find(call), times);
    }
}

} // namespace

void print_runtime_error(FILE *stream, const session &s, const source &from,
                         const error_trail &trail, const source &set)
{
    const origins known(s, from, set);
    const origin place = trail.at == nullptr ? origin() : known.find(trail.at);
    print_fault(stream, place.is_known() ? *place.file : from,
                {place.is_known() ? place.at : file_place{0, 0}, error_text(place.is_known())});
    print_calls(stream, known, trail);
}
