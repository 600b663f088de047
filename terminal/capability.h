// Capabilities of a terminal entry while tgetent() collects them: split from entries, merged,
// written out as one text. The first definition of a name wins, in this entry or in one that it
// refers to.
#pragma once

#include <array>
#include <string_view>

#include "kestrin/types.h"

// One node: the pointer, then the NUL-terminated text in the same block.
struct capability {
    capability *next;
    CHR *text() { return reinterpret_cast<CHR *>(this + 1); }
};

// Capabilities in the order of their first appearance; owns its nodes.
struct capability_list {
    capability *first = nullptr;
    capability **end = &first;
    capability_list() = default;
    ~capability_list();
    capability_list(const capability_list &) = delete;
    capability_list &operator=(const capability_list &) = delete;
};

// The terminals whose entries are merged: the one asked for, then what "tc=" adds; owns the latter.
struct name_list {
    static constexpr int MOST = 16;
    std::array<const CHR *, MOST> names{};
    int count = 1;
    explicit name_list(const CHR *asked) : names{asked} {}
    ~name_list();
    name_list(const name_list &) = delete;
    name_list &operator=(const name_list &) = delete;
};

// An escape in termcap notation at the start of a text.
struct escape {
    UCH byte;         // what it stands for
    std::size_t size; // bytes of its spelling
};
// Reads the escape that `text`, which starts with a backslash, opens with. A backslash at the very
// end stands for itself.
escape read_escape(std::string_view text);

// Adds the capabilities of an entry. "tc=" lengthens `names`, as far as 16, or is ignored if NULL.
void parse_entry(const CHR *entry, capability_list *list, name_list *names);
// Sets the number `label` ("li#") in the place of a node that begins so, else at the end.
void set_number(capability_list *list, std::string_view label, unsigned number);

// Bytes that join_entry() needs for all of the list, the NUL included.
std::size_t joined_size(std::string_view name, const capability_list &list);
// The entry as one block: name, ":", each capability and ":" behind it, cancellations left out.
// What does not fit into `size` bytes is cut off, with a warning on descriptor 2.
CHR *join_entry(std::string_view name, const capability_list &list, std::size_t size);
