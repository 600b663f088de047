// From words of linked code back to the nodes that they were compiled from.

#include "workshop/trace.h"

#include <algorithm>
#include <string>

#include "kestrin/strings.h"
#include "strings/scratch.h"
#include "vm/engine.h"
#include "workshop/program.h"

namespace {

// What a node is and where it came from. Line 0: nowhere that is known.
struct origin {
    const source *file = nullptr;
    file_place at = {0, 0};
    name_id name = NO_NAME;
};

class origins {
public:
    origins(const session &s, const source &from, const source &set)
        : session_(s), program_(from), set_(set)
    {
    }
    origin find(const ULO *word) const
    {
        origin found = find_in(s().prog_text, s().program_places, s().program, program_, word);
        if (found.file == nullptr)
            found = find_in(the_engine.global_udf_code, s().set_places, s().set, set_, word);
        return found;
    }

private:
    const session &s() const { return session_; }
    static origin find_in(const CHR *code, const std::vector<code_place> *places, const tree &t,
                          const source &file, const ULO *word);

    const session &session_;
    const source &program_;
    const source &set_;
};

// The last node that begins at the word or in front of it: a handler tells the word behind its own,
// which may be the first behind the code, or one of its operands.
origin origins::find_in(const CHR *code, const std::vector<code_place> *places, const tree &t,
                        const source &file, const ULO *word)
{
    const ULO from = reinterpret_cast<ULO>(code), at = reinterpret_cast<ULO>(word);
    if (code == nullptr || places == nullptr || at < from || at > from + len(code)) return {};
    const ULO number = (at - from) / sizeof(ULO);
    auto behind = std::upper_bound(places->begin(), places->end(), number,
                                   [](ULO n, const code_place &p) { return n < p.word; });
    if (behind == places->begin()) return {};
    const node &found = t.nodes[(--behind)->node];
    return {&file, t.place_of(found), found.name};
}

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
    const std::string_view name = call.name == NO_NAME ? "" : names().text(call.name);
    fprintf(stream, "%s:%lu:%lu: `%.*s' is called here", call.file->name.c_str(),
            call.file->number_of(call.at.line), call.at.column, int(name.size()), name.data());
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
    const bool has_place = place.file != nullptr && place.at.line != 0;
    print_fault(stream, has_place ? *place.file : from,
                {has_place ? place.at : file_place{0, 0}, error_text(has_place)});
    print_calls(stream, known, trail);
}
