// Splitting, merging and joining of terminal entries for tgetent(). A stored capability keeps its
// termcap notation, brought to one form: what an escape hides is stored plainly where the entry
// stays readable with it, so that only control bytes and colons keep their escapes.
#include "terminal/capability.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr UCH PRINTABLE_BITS = 0x60; // set in no byte from 0 to 31

// Name of a capability: what stands ahead of "=", else of "@", else of "#", else all of it.
std::string_view name_of(std::string_view field)
{
    for (CHR mark : {'=', '@', '#'}) {
        std::size_t place = field.find(mark);
        if (place != field.npos) return field.substr(0, place);
    }
    return field;
}

auto find_prefix(term_texts *list, std::string_view prefix)
{
    return std::find_if(list->begin(), list->end(),
                        [prefix](const term_text &text) { return text.starts_with(prefix); });
}

// `field` in its stored form. A backslash with nothing behind it would hide the separator of the
// joined entry and is dropped.
term_text normalised(std::string_view field)
{
    term_text text;
    while (!field.empty()) {
        std::size_t size = 1;
        if (field[0] == '\\') {
            const escape found = read_escape(field);
            size = found.size;
            if (size == 1) break;
            if ((found.byte & PRINTABLE_BITS) && found.byte != ':') {
                text.push_back(static_cast<CHR>(found.byte));
                field.remove_prefix(size);
                continue;
            }
        } else if (field[0] == '^' && field.size() > 1) {
            size = 2;
        }
        text.append(field.substr(0, size));
        field.remove_prefix(size);
    }
    return text;
}

void add_field(std::string_view field, term_texts *list, term_texts *names)
{
    std::size_t start = field.find_first_not_of("\t\n ");
    if (start == field.npos) return;
    field.remove_prefix(start);
    if (field[0] == '.' || field[0] == ':' || field == "\\") return;
    if (field.starts_with("tc=")) {
        if (names == nullptr || names->size() == MOST_NAMES) return;
        const std::string_view name = field.substr(3);
        if (std::find(names->begin(), names->end(), name) == names->end())
            names->emplace_back(name);
        return;
    }
    std::string_view name = name_of(field);
    if (!name.empty() && find_prefix(list, name) == list->end()) list->push_back(normalised(field));
}

// Size of the text ahead of the first ":" that no backslash hides.
std::size_t field_size(const CHR *text)
{
    std::size_t size = strcspn(text, ":");
    while (text[size] && size > 0 && text[size - 1] == '\\')
        size += 1 + strcspn(text + size + 1, ":");
    return size;
}

bool is_cancellation(std::string_view text)
{
    return text.ends_with('@') && text.find('=') == text.npos;
}

} // namespace

escape read_escape(std::string_view text)
{
    static constexpr std::string_view letters = "Enbtfr", bytes = "\033\n\b\t\f\r";
    if (text.size() < 2) return {'\\', 1};
    std::size_t size = 1;
    unsigned value = 0;
    while (size < text.size() && size <= 3 && text[size] >= '0' && text[size] <= '7') {
        value = value * 8 + static_cast<unsigned>(text[size++] - '0');
    }
    if (size > 1) return {static_cast<UCH>(value), size};
    std::size_t letter = letters.find(text[1]);
    return {static_cast<UCH>(letter == letters.npos ? text[1] : bytes[letter]), 2};
}

void parse_entry(const CHR *entry, term_texts *list, term_texts *names)
{
    const CHR *at = strchr(entry, ':');
    while (at) {
        std::size_t size = field_size(++at);
        add_field({at, size}, list, names);
        at = at[size] ? at + size : nullptr;
    }
}

void set_number(term_texts *list, std::string_view label, unsigned number)
{
    term_text text(label);
    text.append(std::to_string(number));
    const auto place = find_prefix(list, label);
    if (place == list->end())
        list->push_back(text);
    else
        *place = text;
}

std::size_t joined_size(std::string_view name, const term_texts &list)
{
    std::size_t size = name.size() + 2;
    for (const term_text &text : list) size += text.size() + 1;
    return size;
}

term_text join_entry(std::string_view name, const term_texts &list, std::size_t size)
{
    term_text entry;
    const auto put = [&entry, size](std::string_view piece) {
        if (entry.size() + piece.size() + 2 > size) return false;
        entry.append(piece).push_back(':');
        return true;
    };
    bool fits = put(name);
    for (auto text = list.begin(); text != list.end() && fits; text++)
        fits = is_cancellation(*text) || put(*text);
    if (!fits) term_complain("tgetent: warning: termcap entry too long\n");
    return entry;
}
