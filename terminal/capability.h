// Capabilities of a terminal entry while tgetent() collects them: split from entries, merged,
// written out as one text. The first definition of a name wins, in this entry or in one that it
// refers to.
#pragma once

#include <string_view>
#include <vector>

#include "terminal/memory.h"

using term_texts = std::vector<term_text, term_allocator<term_text>>;

// The terminals whose entries are merged are so many at the most: the one asked for, then what
// "tc=" adds.
constexpr std::size_t MOST_NAMES = 16;

// An escape in termcap notation at the start of a text.
struct escape {
    UCH byte;         // what it stands for
    std::size_t size; // bytes of its spelling
};
// Reads the escape that `text`, which starts with a backslash, opens with. A backslash at the very
// end stands for itself.
escape read_escape(std::string_view text);

// Adds the capabilities of an entry, in the order of their first appearance. "tc=" lengthens
// `names`, or is ignored if NULL.
void parse_entry(const CHR *entry, term_texts *list, term_texts *names);
// Sets the number `label` ("li#") in the place of a capability that begins so, else at the end.
void set_number(term_texts *list, std::string_view label, unsigned number);

// Bytes that join_entry() needs for all of the list, the NUL included.
std::size_t joined_size(std::string_view name, const term_texts &list);
// The entry as one text: name, ":", each capability and ":" behind it, cancellations left out. What
// does not fit into `size` bytes is cut off, with a warning on descriptor 2.
term_text join_entry(std::string_view name, const term_texts &list, std::size_t size);
