// One walk over the lines of the manual finds its entries: underlined titles, the headings of the
// reference, and the rows of a few tables.

#include "workshop/manual.h"

#include <algorithm>
#include <cctype>
#include <numeric>

namespace {

constexpr auto NONE = std::string_view::npos;

std::string_view manual()
{
    return {reinterpret_cast<const char *>(manual_text), manual_text_size};
}

bool is_digit(char c) { return c >= '0' && c <= '9'; }

char folded(char c) { return static_cast<char>(toupper(static_cast<unsigned char>(c))); }

bool equal(std::string_view a, std::string_view b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return folded(x) == folded(y); });
}

bool is_of_word(char c) { return isalnum(static_cast<unsigned char>(c)) || c == '_'; }

// Whether a text has these words, with no letter at either side.
bool has_words(std::string_view text, std::string_view words)
{
    for (std::size_t i = 0; i + words.size() <= text.size(); i++) {
        if (!equal(text.substr(i, words.size()), words)) continue;
        const std::size_t end = i + words.size();
        if (i > 0 && is_of_word(text[i - 1])) continue;
        if (end == text.size() || !is_of_word(text[end])) return true;
    }
    return false;
}

std::size_t indent_of(std::string_view line)
{
    return std::min(line.find_first_not_of(' '), line.size());
}

// -- Lines of the manual -----------------------------------------------------------------------

// "21. Control" or "21.1 Loops": the length of the number, its point included; else 0.
std::size_t number_size(std::string_view line)
{
    std::size_t end = 0;
    while (end < line.size() && (is_digit(line[end]) || line[end] == '.')) end++;
    const bool is_number = end > 1 && end < line.size() && line[end] == ' ' && is_digit(line[0]);
    return is_number && line.find('.') < end ? end : 0;
}

bool is_underline(std::string_view line, char mark)
{
    return line.size() > 2 && line.find_first_not_of(mark) == NONE;
}

// "IADD, +      I I -> I": the names; empty for another line.
std::string_view names_of_heading(std::string_view line)
{
    if (line.empty() || line[0] == ' ' || line.size() < 5) return {};
    if (line.substr(line.size() - 5, 4) != " -> " || !isupper(line.back())) return {};
    const auto end = line.find("  ");
    return end == NONE ? std::string_view() : line.substr(0, end);
}

// Tables whose rows are entries, and how their rows begin.
struct entry_table {
    std::string_view title;
    bool (*begins_row)(std::string_view word);
};

bool is_option(std::string_view word) { return word[0] == '-'; }
bool is_switch(std::string_view word) { return word.starts_with("KESTRIN_"); }
bool is_code(std::string_view word) { return std::all_of(word.begin(), word.end(), is_digit); }

constexpr entry_table tables[] = {
    {"Options", is_option},
    {"Switches in the environment", is_switch},
    {"Syntax errors", is_code},
    {"The codes", is_code},
};

// The names that a row begins with: all of its first words that could begin one.
std::vector<std::string_view> names_of_row(std::string_view line, const entry_table &table)
{
    std::vector<std::string_view> names;
    const std::size_t indent = indent_of(line);
    if (indent == 0 || indent > 4) return names;
    line.remove_prefix(indent);
    while (!line.empty()) {
        const std::string_view word = line.substr(0, line.find(' '));
        if (!table.begins_row(word)) break;
        names.push_back(word);
        line.remove_prefix(word.size());
        line.remove_prefix(indent_of(line));
        if (table.begins_row == is_code) break;
    }
    return names;
}

class reader {
public:
    std::vector<manual_entry> read();

private:
    std::string_view line_at(std::size_t place) const
    {
        return text_.substr(place, text_.find('\n', place) - place);
    }
    std::size_t behind(std::size_t place) const
    {
        const auto end = text_.find('\n', place);
        return end == NONE ? text_.size() : end + 1;
    }
    bool take_title(std::size_t place);
    bool take_heading(std::size_t place);
    void take_row(std::size_t place);
    std::size_t end_of_topic(std::size_t place, bool is_chapter) const;
    std::size_t end_of_block(std::size_t place) const;
    std::size_t end_of_row(std::size_t place) const;

    std::string_view text_ = manual();
    std::string_view place_; // line of the section
    const entry_table *table_ = nullptr;
    std::size_t taken_ = 0; // up to here, instructions
    std::vector<manual_entry> entries_;
};

// A topic goes on to the next of its kind; a chapter holds its sections.
std::size_t reader::end_of_topic(std::size_t place, bool is_chapter) const
{
    for (place = behind(behind(place)); place < text_.size(); place = behind(place)) {
        if (number_size(line_at(place)) == 0) continue;
        const std::string_view next = line_at(behind(place));
        if (is_underline(next, '=') || (!is_chapter && is_underline(next, '-'))) break;
    }
    return place;
}

// Headings in a row, then indented and empty lines.
std::size_t reader::end_of_block(std::size_t place) const
{
    while (!names_of_heading(line_at(place)).empty()) place = behind(place);
    while (place < text_.size() && (line_at(place).empty() || indent_of(line_at(place)) > 0))
        place = behind(place);
    return place;
}

// Lines that stand deeper than the row's first word.
std::size_t reader::end_of_row(std::size_t place) const
{
    const std::size_t indent = indent_of(line_at(place));
    do place = behind(place);
    while (place < text_.size() && indent_of(line_at(place)) > indent + 2 &&
           names_of_row(line_at(place), *table_).empty());
    return place;
}

bool reader::take_title(std::size_t place)
{
    const std::string_view line = line_at(place), next = line_at(behind(place));
    const std::size_t digits = number_size(line);
    const bool is_chapter = is_underline(next, '=');
    if (digits == 0 || (!is_chapter && !is_underline(next, '-'))) return false;
    const std::string_view title = line.substr(digits + 1);
    place_ = line;
    table_ = nullptr;
    for (const entry_table &table : tables)
        if (table.title == title) table_ = &table;
    const std::string_view text = text_.substr(place, end_of_topic(place, is_chapter) - place);
    entries_.push_back(
        {entry_kind::TOPIC, {line.substr(0, digits), title}, text, line, is_chapter});
    return true;
}

bool reader::take_heading(std::size_t place)
{
    if (place < taken_ || names_of_heading(line_at(place)).empty()) return place < taken_;
    taken_ = end_of_block(place);
    manual_entry entry = {entry_kind::INSTRUCTION, {}, text_.substr(place, taken_ - place), place_};
    for (;; place = behind(place)) {
        std::string_view names = names_of_heading(line_at(place));
        if (names.empty()) break;
        while (!names.empty()) {
            const std::string_view name = names.substr(0, names.find(", "));
            entry.names.push_back(name);
            names.remove_prefix(std::min(name.size() + 2, names.size()));
        }
    }
    entries_.push_back(entry);
    return true;
}

void reader::take_row(std::size_t place)
{
    if (table_ == nullptr) return;
    const std::vector<std::string_view> names = names_of_row(line_at(place), *table_);
    if (names.empty()) return;
    const std::string_view text = text_.substr(place, end_of_row(place) - place);
    entries_.push_back({entry_kind::ROW, names, text, place_});
}

std::vector<manual_entry> reader::read()
{
    for (std::size_t place = 0; place < text_.size(); place = behind(place))
        if (!take_title(place) && !take_heading(place)) take_row(place);
    return std::move(entries_);
}

// -- Names that look alike ---------------------------------------------------------------------

// How many letters have to be put in, left out or replaced.
std::size_t distance(std::string_view a, std::string_view b)
{
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (std::size_t i = 0; i < a.size(); i++) {
        std::size_t diagonal = row[0]++;
        for (std::size_t j = 0; j < b.size(); j++) {
            const std::size_t replaced = diagonal + (folded(a[i]) != folded(b[j]));
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row[b.size()];
}

template <class Fits> std::vector<const manual_entry *> select(Fits fits)
{
    std::vector<const manual_entry *> found;
    for (const manual_entry &entry : manual_entries())
        if (fits(entry)) found.push_back(&entry);
    return found;
}

// Names of instructions, options and switches that look alike, the most alike first, at most five.
std::vector<std::string_view> similar_names(std::string_view name)
{
    struct candidate {
        std::string_view name;
        std::size_t distance;
    };
    std::vector<candidate> near;
    const std::size_t most = name.size() / 3 + 1;
    for (const manual_entry &entry : manual_entries())
        for (const std::string_view own : entry.names) {
            const std::size_t apart = distance(name, own);
            if (entry.kind != entry_kind::TOPIC && own.size() > 1 && apart <= most)
                near.push_back({own, apart});
        }
    std::stable_sort(near.begin(), near.end(), [](const candidate &a, const candidate &b) {
        return a.distance < b.distance;
    });
    std::vector<std::string_view> names;
    for (std::size_t i = 0; i < near.size() && i < 5; i++) names.push_back(near[i].name);
    return names;
}

// -- What is shown ------------------------------------------------------------------------------

// It ends with the line of its place.
std::string shown_entry(const manual_entry &entry)
{
    std::string_view text = entry.text;
    while (text.ends_with("\n")) text.remove_suffix(1);
    std::string shown = std::string(text).append("\n");
    if (entry.kind != entry_kind::TOPIC) shown.append("\n  [").append(entry.place).append("]\n");
    return shown;
}

// The topics that fit, when there are several to choose from.
std::string choice(const std::vector<const manual_entry *> &found)
{
    std::string out;
    for (const manual_entry *entry : found) out.append("  ").append(entry->place).append("\n");
    return out;
}

std::string text_of(const std::vector<const manual_entry *> &found)
{
    if (found.size() > 1 && found[0]->kind == entry_kind::TOPIC) return choice(found);
    std::string out;
    for (const manual_entry *entry : found) {
        if (entry != found[0] && entry->kind != entry_kind::TOPIC) out.append("\n");
        out.append(entry == found[0] || entry->kind != entry_kind::TOPIC
                       ? shown_entry(*entry)
                       : "  [" + std::string(entry->place) + "]\n");
    }
    return out;
}

} // namespace

const std::vector<manual_entry> &manual_entries()
{
    static const std::vector<manual_entry> entries = reader().read();
    return entries;
}

std::vector<const manual_entry *> find_in_manual(std::string_view name)
{
    auto found = select([&](const manual_entry &e) {
        return std::any_of(e.names.begin(), e.names.end(),
                           [&](std::string_view own) { return equal(own, name); });
    });
    if (found.empty())
        found = select([&](const manual_entry &e) {
            return e.kind == entry_kind::TOPIC && has_words(e.names[1], name);
        });
    if (found.empty())
        found = select([&](const manual_entry &e) {
            return e.kind == entry_kind::TOPIC && !e.is_chapter && has_words(e.text, name);
        });
    std::stable_sort(found.begin(), found.end(), [](const manual_entry *a, const manual_entry *b) {
        return a->kind < b->kind;
    });
    return found;
}

std::string told_of(std::string_view name)
{
    const auto found = find_in_manual(name);
    return found.empty() ? std::string() : text_of(found);
}

std::string hint_for(std::string_view name)
{
    std::string near;
    for (const std::string_view other : similar_names(name))
        near.append(near.empty() ? "; alike: " : ", ").append(other);
    return near;
}
