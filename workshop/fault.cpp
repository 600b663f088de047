// A fault as compilers print it. Of a long line the part around the place is shown.

#include "workshop/fault.h"

#include <algorithm>
#include <tuple>

namespace {

constexpr ULO WIDEST = 96; // bytes of a line that are shown
constexpr ULO AHEAD = 60;  // of them, at most, in front of the place

bool continues_character(CHR byte) { return (static_cast<UCH>(byte) & 0xC0) == 0x80; }

// Bytes that a terminal would obey are shown as blanks.
void print_plain(FILE *stream, std::string_view text)
{
    for (const CHR byte : text)
        putc(static_cast<UCH>(byte) < 32 && byte != '\t' ? ' ' : byte, stream);
}

// Blanks as wide as the text, a tab for a tab.
void print_gap(FILE *stream, std::string_view text)
{
    for (const CHR byte : text)
        if (!continues_character(byte)) putc(byte == '\t' ? '\t' : ' ', stream);
}

void print_marked(FILE *stream, std::string_view line, ULO place)
{
    ULO from = place > WIDEST - 1 ? place - AHEAD : 0;
    while (from > 0 && continues_character(line[from])) from--;
    ULO to = std::min(line.size(), from + WIDEST);
    while (to < line.size() && continues_character(line[to])) to++;
    fputs("    ", stream);
    print_plain(stream, line.substr(from, to - from));
    fputs("\n    ", stream);
    print_gap(stream, line.substr(from, place - from));
    fputs("^\n", stream);
}

} // namespace

std::string_view source::line(ULO number) const
{
    std::string_view rest = text;
    for (; number > 1; number--) {
        const auto end = rest.find('\n');
        if (end == rest.npos) return {};
        rest.remove_prefix(end + 1);
    }
    return rest.substr(0, std::min(rest.find('\n'), rest.find('\r')));
}

void sort_by_place(std::vector<fault> *faults)
{
    std::stable_sort(faults->begin(), faults->end(), [](const fault &a, const fault &b) {
        return std::tie(a.at.line, a.at.column) < std::tie(b.at.line, b.at.column);
    });
}

void print_fault(FILE *stream, const source &from, const fault &found)
{
    fprintf(stream, "%s:", from.name.c_str());
    if (found.at.line != 0) fprintf(stream, "%lu:", from.number_of(found.at.line));
    if (found.at.column != 0) fprintf(stream, "%lu:", found.at.column);
    fprintf(stream, " %s%s\n", found.is_warning ? "warning: " : "", found.text.c_str());
    if (found.at.column == 0) return;
    const std::string_view line = from.line(found.at.line);
    print_marked(stream, line, std::min(found.at.column - 1, line.size()));
}

void print_faults(FILE *stream, const source &from, const std::vector<fault> &found)
{
    for (const fault &one : found) print_fault(stream, from, one);
}
