#include "workshop/lsp_diagnostics.h"

#include <algorithm>

#include "vm/stack.h"
#include "workshop/check.h"

namespace {

enum severity { ERROR = 1, WARNING = 2 };

// What a level of forms may take of the stack, in whichever pass.
#ifdef __SANITIZE_ADDRESS__
constexpr ULO STACK_OF_LEVEL = 65536;
#else
constexpr ULO STACK_OF_LEVEL = 4096;
#endif

} // namespace

bool is_too_deep(std::string_view text)
{
    const ULO room = stack_floor == nullptr ? ULO(4) << 20 : ULO(stack_pointer() - stack_floor);
    ULO depth = 0, deepest = 0;
    for (const CHR c : text) {
        if (c == '(') deepest = std::max(deepest, ++depth);
        if (c == ')' && depth > 0) depth--;
    }
    return deepest > room / STACK_OF_LEVEL;
}

namespace {

std::vector<fault> faults_in(const document &doc)
{
    if (is_too_deep(doc.text())) return {{{0, 0}, "its forms are nested too deep to be checked"}};
    const name_id known = names().count();
    std::vector<fault> faults = check_source({"", doc.text()});
    names().cut(known);
    return faults;
}

struct byte_range {
    ULO from, to;
};

// The character that begins at a byte, or at the end of a line the one ahead of it.
byte_range character_at(const document &doc, ULO from, ULO end)
{
    const std::string &text = doc.text();
    ULO to = std::min(from + 1, end);
    while (to < end && continues_character(text[to])) to++;
    if (from < end || doc.place_at(end).character == 0) return {from, to};
    while (from > 0 && continues_character(text[--from])) {}
    return {from, end};
}

// The token that begins at a place; of a form what stands on its first line. Elsewhere a character.
// Without a column the line, without a line the first one. Lines of faults are those of the
// language, which a lone "\r" does not end; ranges stay in one of the protocol's.
byte_range range_of(const document &doc, const std::vector<std::string_view> &lines, file_place at)
{
    const std::string_view line = lines[std::clamp<ULO>(at.line, 1, lines.size()) - 1];
    const ULO begin = static_cast<ULO>(line.data() - lines[0].data());
    const bool is_line = at.line == 0 || at.column == 0;
    const ULO from = begin + (is_line ? 0 : std::min(at.column - 1, line.size()));
    const ULO end = doc.line_end(from);
    if (is_line) return {from, end};
    const text_names &names = doc.names();
    const piece_index piece = names.piece_from(from);
    if (piece != NO_PIECE) return {from, std::clamp(names.to(names.pieces()[piece]), from, end)};
    return character_at(doc, from, end);
}

} // namespace

json range_json(const document &doc, ULO from, ULO to)
{
    const text_place begin = doc.place_at(from), end = doc.place_at(to);
    return {{"start", {{"line", begin.line}, {"character", begin.character}}},
            {"end", {{"line", end.line}, {"character", end.character}}}};
}

json diagnostics_of(const document &doc)
{
    json list = json::array();
    const source from = {"", doc.text()};
    std::vector<std::string_view> lines;
    for (const fault &found : faults_in(doc)) {
        if (lines.empty()) lines = from.lines();
        const byte_range range = range_of(doc, lines, found.at);
        list.push_back({{"range", range_json(doc, range.from, range.to)},
                        {"severity", found.is_warning ? WARNING : ERROR},
                        {"source", "kst"},
                        {"message", found.text}});
    }
    return list;
}
