// The lines in which both texts begin and end are set aside; of what is left the longest common
// part is found by a table, if it is small enough, else it differs as a whole.

#include "workshop/difference.h"

#include <algorithm>

#include "kestrin/types.h"

namespace {

constexpr ULO LARGEST_TABLE = ULO(4) << 20;
constexpr ULO AROUND = 2;       // lines shown around a difference
constexpr ULO MOST_SHOWN = 100; // lines of a difference

using lines = std::vector<std::string_view>;

std::string visible(CHR mark, std::string_view line)
{
    std::string text(1, mark);
    const bool has_end = line.ends_with('\n');
    if (has_end) line.remove_suffix(1);
    for (const CHR byte : line) {
        CHR hex[8];
        snprintf(hex, sizeof hex, "\\x%02X", unsigned(static_cast<UCH>(byte)));
        const bool is_plain = (static_cast<UCH>(byte) >= ' ' && byte != 127) || byte == '\t';
        text += is_plain ? std::string(1, byte) : std::string(hex);
    }
    return has_end ? text : text + "\\c";
}

// How many lines the parts behind each pair of places have in common, in order.
class table {
public:
    table(const lines &a, const lines &b, ULO from, ULO a_end, ULO b_end)
        : from_(from), width_(b_end - from + 1), common_((a_end - from + 1) * width_)
    {
        for (ULO i = a_end; i > from; i--)
            for (ULO j = b_end; j > from; j--)
                at(i - 1, j - 1) =
                    a[i - 1] == b[j - 1] ? at(i, j) + 1 : std::max(at(i, j - 1), at(i - 1, j));
    }
    std::uint32_t &at(ULO i, ULO j) { return common_[(i - from_) * width_ + j - from_]; }

private:
    ULO from_, width_;
    std::vector<std::uint32_t> common_;
};

struct middle {
    ULO from, a_end, b_end;
};

middle middle_of(const lines &a, const lines &b)
{
    middle m = {0, a.size(), b.size()};
    while (m.from < std::min(m.a_end, m.b_end) && a[m.from] == b[m.from]) m.from++;
    while (std::min(m.a_end, m.b_end) > m.from && a[m.a_end - 1] == b[m.b_end - 1])
        m.a_end--, m.b_end--;
    return m;
}

void show_middle(std::vector<std::string> *shown, const lines &a, const lines &b, const middle &m)
{
    ULO i = m.from, j = m.from;
    if ((m.a_end - m.from) * (m.b_end - m.from) <= LARGEST_TABLE) {
        table t(a, b, m.from, m.a_end, m.b_end);
        while (i < m.a_end && j < m.b_end)
            if (a[i] == b[j])
                shown->push_back(visible(' ', a[i])), i++, j++;
            else if (t.at(i + 1, j) >= t.at(i, j + 1))
                shown->push_back(visible('-', a[i++]));
            else
                shown->push_back(visible('+', b[j++]));
    }
    while (i < m.a_end) shown->push_back(visible('-', a[i++]));
    while (j < m.b_end) shown->push_back(visible('+', b[j++]));
}

} // namespace

lines lines_of(std::string_view text)
{
    lines found;
    while (!text.empty()) {
        const ULO size = std::min(text.find('\n'), text.size() - 1) + 1;
        found.push_back(text.substr(0, size));
        text.remove_prefix(size);
    }
    return found;
}

std::vector<std::string> difference(std::string_view wanted, std::string_view got)
{
    const lines a = lines_of(wanted), b = lines_of(got);
    const middle m = middle_of(a, b);
    std::vector<std::string> shown;
    for (ULO i = m.from - std::min(m.from, AROUND); i < m.from; i++)
        shown.push_back(visible(' ', a[i]));
    show_middle(&shown, a, b, m);
    for (ULO i = m.a_end; i < std::min(a.size(), m.a_end + AROUND); i++)
        shown.push_back(visible(' ', a[i]));
    if (shown.size() > MOST_SHOWN) {
        const ULO left_out = shown.size() - MOST_SHOWN;
        shown.resize(MOST_SHOWN);
        shown.push_back("... " + std::to_string(left_out) + " more lines");
    }
    return shown;
}
