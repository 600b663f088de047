// A fault as compilers print it. Of a long line the part around the place is shown.

#include "workshop/fault.h"

#include <algorithm>
#include <tuple>

namespace {

constexpr ULO WIDEST = 96; // bytes of a line that are shown
constexpr ULO AHEAD = 60;  // of them, at most, in front of the place

// Blanks as wide as the text, a tab for a tab.
std::string gap(std::string_view text)
{
    std::string blanks;
    for (const CHR byte : text)
        if (!continues_character(byte)) blanks += byte == '\t' ? '\t' : ' ';
    return blanks;
}

// The part of a line around a place, with a mark below it.
std::string marked(std::string_view line, ULO place)
{
    ULO from = place > WIDEST - 1 ? place - AHEAD : 0;
    while (from > 0 && continues_character(line[from])) from--;
    ULO to = std::min(line.size(), from + WIDEST);
    while (to < line.size() && continues_character(line[to])) to++;
    return "    " + plain(line.substr(from, to - from)) + "\n    " +
           gap(line.substr(from, place - from)) + "^\n";
}

std::string told(const source &from, const std::vector<std::string_view> &lines, const fault &found)
{
    const file_place at = found.at;
    std::string text = from.name + ":";
    if (at.line != 0) text += std::to_string(from.number_of(at.line)) + ":";
    if (at.column != 0) text += std::to_string(at.column) + ":";
    text += (found.is_warning ? " warning: " : " ") + plain(found.text) + "\n";
    if (at.column == 0 || at.line > lines.size()) return text;
    const std::string_view line = lines[at.line - 1];
    return text + marked(line, std::min(at.column - 1, line.size()));
}

} // namespace

std::vector<std::string_view> source::lines() const
{
    std::vector<std::string_view> all;
    for (ULO at = 0; at <= text.size();) {
        const ULO end = std::min(text.find('\n', at), text.size());
        const bool has_return = end > at && text[end - 1] == '\r';
        all.push_back(std::string_view(text).substr(at, end - at - (has_return ? 1 : 0)));
        at = end + 1;
    }
    return all;
}

std::string_view beginning(std::string_view text, ULO most)
{
    if (text.size() <= most) return text;
    while (most > 0 && continues_character(text[most])) most--;
    return text.substr(0, most);
}

std::string shortened(std::string_view text, ULO most)
{
    return std::string(beginning(text, most)) + (text.size() > most ? " ..." : "");
}

std::string plain(std::string_view text)
{
    std::string shown(text);
    for (CHR &byte : shown)
        if ((static_cast<UCH>(byte) < 32 && byte != '\t' && byte != '\n') || byte == 127)
            byte = ' ';
    return shown;
}

void sort_by_place(std::vector<fault> *faults)
{
    std::stable_sort(faults->begin(), faults->end(), [](const fault &a, const fault &b) {
        return std::tie(a.at.line, a.at.column) < std::tie(b.at.line, b.at.column);
    });
}

void print_fault(FILE *stream, const source &from, const fault &found)
{
    print_faults(stream, from, {found});
}

// In few pieces: stderr writes each at once.
void print_faults(FILE *stream, const source &from, const std::vector<fault> &found)
{
    constexpr ULO PIECE = ULO(64) << 10;
    std::string text;
    std::vector<std::string_view> lines;
    if (!found.empty()) lines = from.lines();
    for (const fault &one : found) {
        text += told(from, lines, one);
        if (text.size() < PIECE && &one != &found.back()) continue;
        fwrite(text.data(), 1, text.size(), stream);
        text.clear();
    }
}
