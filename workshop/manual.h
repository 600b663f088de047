// The manual, which kst carries with it, as entries that can be asked for.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// The text of the manual, made from tutorial/manual by the build.
extern const unsigned char manual_text[];
extern const std::size_t manual_text_size;

enum class entry_kind {
    INSTRUCTION, // one or more of the reference that are told together
    ROW,         // of a table: an option, a switch of the environment, an error code
    TOPIC        // a chapter or a section
};

// Views into the text of the manual.
struct manual_entry {
    entry_kind kind;
    std::vector<std::string_view> names; // of a topic: its number, as "7." or "7.3", and its title
    std::string_view text;               // whole lines
    std::string_view place; // line of the section that it stands in; of a chapter its own
    bool is_chapter = false;
};

// All entries, in the order of the manual.
const std::vector<manual_entry> &manual_entries();

// The entries that are called so, in any case of letters: those by a name, else the topics with
// these words in their titles, else the topics whose text has these words. Topics come last.
std::vector<const manual_entry *> find_in_manual(std::string_view name);

// What the manual says of a name: its entries, or the list of several topics. Whole lines; empty if
// it says nothing.
std::string told_of(std::string_view name);
// Names that look alike, to be put behind the report of one that is not there; empty without any.
std::string hint_for(std::string_view name);
