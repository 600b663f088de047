// Names as numbers. Each name that a thread's passes meet is looked up once, by hash, and is its
// number from then on. The names of the instructions come first (frontend/words.h).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kestrin/types.h"

using name_id = std::uint32_t;
constexpr name_id NO_NAME = UINT32_MAX;

class name_table {
public:
    // The number of a name; a new one gets the next.
    name_id enter(std::string_view text);
    // NO_NAME for a name that has not been entered.
    name_id find(std::string_view text) const;
    // Valid until a name is entered.
    std::string_view text(name_id name) const
    {
        return {chars_.data() + entries_[name].from, entries_[name].size};
    }
    name_id count() const { return static_cast<name_id>(entries_.size()); }
    // Forgets all names from number `count` on.
    void cut(name_id count);

private:
    struct entry {
        ULO head; // the first bytes, all of a short name
        std::uint32_t hash, size;
        ULO from; // in chars_
    };
    static entry entry_of(std::string_view text);
    ULO place_of(std::string_view text, const entry &wanted) const;
    void grow();

    std::string chars_;
    std::vector<entry> entries_;
    std::vector<name_id> places_; // by hash, the next free one if taken; NO_NAME: empty
};

// The calling thread's names.
name_table &names();
