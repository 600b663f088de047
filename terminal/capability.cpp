// Splitting, merging and joining of terminal entries for tgetent(). A stored capability keeps its
// termcap notation, brought to one form: what an escape hides is stored plainly where the entry
// stays readable with it, so that only control bytes and colons keep their escapes.
#include "terminal/capability.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "terminal/memory.h"

namespace {

constexpr UCH PRINTABLE_BITS = 0x60; // set in no byte from 0 to 31

capability *new_node(std::size_t size)
{
    return new (term_allocate(sizeof(capability) + size + 1)) capability{nullptr};
}

void append(capability_list *list, capability *node)
{
    *list->end = node;
    list->end = &node->next;
}

// Name of a capability: what stands ahead of "=", else of "@", else of "#", else all of it.
std::string_view name_of(std::string_view field)
{
    for (CHR mark : {'=', '@', '#'}) {
        std::size_t place = field.find(mark);
        if (place != field.npos) return field.substr(0, place);
    }
    return field;
}

capability **find_prefix(capability_list *list, std::string_view prefix)
{
    capability **link = &list->first;
    while (*link && strncmp((*link)->text(), prefix.data(), prefix.size()) != 0) {
        link = &(*link)->next;
    }
    return link;
}

// Writes `field` in its stored form, which is never longer, and returns the end. A backslash with
// nothing behind it would hide the separator of the joined entry and is dropped.
CHR *normalise(CHR *out, std::string_view field)
{
    while (!field.empty()) {
        std::size_t size = 1;
        if (field[0] == '\\') {
            escape found = read_escape(field);
            size = found.size;
            if (size == 1) break;
            if ((found.byte & PRINTABLE_BITS) && found.byte != ':') {
                *out++ = static_cast<CHR>(found.byte);
                field.remove_prefix(size);
                continue;
            }
        } else if (field[0] == '^' && field.size() > 1) {
            size = 2;
        }
        memcpy(out, field.data(), size);
        out += size;
        field.remove_prefix(size);
    }
    return out;
}

void add_name(name_list *list, std::string_view name)
{
    for (int i = 0; i < list->count; i++) {
        if (name == list->names[i]) return;
    }
    if (list->count == name_list::MOST) return;
    CHR *copy = static_cast<CHR *>(term_allocate(name.size() + 1));
    copy[name.copy(copy, name.size())] = '\0';
    list->names[list->count++] = copy;
}

void add_field(std::string_view field, capability_list *list, name_list *names)
{
    std::size_t start = field.find_first_not_of("\t\n ");
    if (start == field.npos) return;
    field.remove_prefix(start);
    if (field[0] == '.' || field[0] == ':' || field == "\\") return;
    if (field.starts_with("tc=")) {
        if (names) add_name(names, field.substr(3));
        return;
    }
    std::string_view name = name_of(field);
    if (name.empty() || *find_prefix(list, name)) return;
    capability *node = new_node(field.size());
    *normalise(node->text(), field) = '\0';
    append(list, node);
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

// Fills a block of fixed size; a piece that does not fit is refused whole.
struct bounded_text {
    CHR *at;
    CHR *end; // place of the last NUL

    bool put(std::string_view piece)
    {
        if (piece.size() >= static_cast<std::size_t>(end - at)) return false;
        at += piece.copy(at, piece.size());
        *at++ = ':';
        return true;
    }
};

} // namespace

capability_list::~capability_list()
{
    while (first) free(std::exchange(first, first->next));
}

name_list::~name_list()
{
    for (int i = 1; i < count; i++) free(const_cast<CHR *>(names[i]));
}

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

void parse_entry(const CHR *entry, capability_list *list, name_list *names)
{
    const CHR *at = strchr(entry, ':');
    while (at) {
        std::size_t size = field_size(++at);
        add_field({at, size}, list, names);
        at = at[size] ? at + size : nullptr;
    }
}

void set_number(capability_list *list, std::string_view label, unsigned number)
{
    static constexpr std::size_t DIGITS = 10;
    capability *node = new_node(label.size() + DIGITS);
    CHR *digits = node->text() + label.copy(node->text(), label.size());
    snprintf(digits, DIGITS + 1, "%u", number);
    capability **link = find_prefix(list, label);
    if (*link == nullptr) return append(list, node);
    node->next = (*link)->next;
    if (list->end == &(*link)->next) list->end = &node->next;
    free(std::exchange(*link, node));
}

std::size_t joined_size(std::string_view name, const capability_list &list)
{
    std::size_t size = name.size() + 2;
    for (capability *node = list.first; node; node = node->next) size += strlen(node->text()) + 1;
    return size;
}

CHR *join_entry(std::string_view name, const capability_list &list, std::size_t size)
{
    static constexpr std::string_view warning = "tgetent: warning: termcap entry too long\n";
    CHR *entry = static_cast<CHR *>(term_allocate(size));
    bounded_text text{entry, entry + size - 1};
    bool fits = text.put(name);
    for (capability *node = list.first; node && fits; node = node->next) {
        fits = is_cancellation(node->text()) || text.put(node->text());
    }
    *text.at = '\0';
    if (!fits) term_complain(warning);
    return entry;
}
