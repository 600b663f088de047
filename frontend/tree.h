// A program as a tree. It is parsed once; the passes annotate and change the tree, and text is
// written from it where text is wanted.
//
// The nodes stand in one list and refer to each other by number. A form is its first word and its
// arguments:
//
//     (SETQ A 1)     form SETQ -- first --> A -- next --> 1
//
// Text that is out of balance, and text that the passes would not have written so, is parsed too,
// in the one way in which a walk over its tokens takes it apart. Written anew it may be another
// tree; then the tree is not settled, and a pass that has changed it writes and parses it again.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "frontend/isa.h"
#include "frontend/names.h"
#include "frontend/places.h"
#include "kestrin/types.h"
#include "strings/fatal.h"

SHARED_FATAL_SITE(STACK_CHECK)
SHARED_FATAL_SITE(STACK_PRINT)

using node_index = std::uint32_t;
constexpr node_index NO_NODE = UINT32_MAX;

struct node {
    std::uint32_t text = 0, size = 0; // where it stands in the tree's text: of a form all of it
    node_index first = NO_NODE;       // argument of a form
    node_index next = NO_NODE;        // argument of the same form
    name_id name = NO_NAME;           // of a variable or argument; a form's first word, if any
    CHR letter = 0; // by kestrin_type1; 'U' a form, 'C' one that is a comment, 0 not classed yet
    CHR suffix = 0; // the type that is proved, as it is written behind '@'
    bool may_be_squeezed = true; // a form: squeezing may change it or what is in it
    bool is_raw = false;         // a string: its text is the string, without quotes and escapes
};

// What a text is, and how it is parsed.
enum reading : UCH {
    SOURCE,  // to be checked: first words are folded, comments left out, tokens not classed
    CHECKED, // the checker's, or what stands behind it unchecked
    TYPED,   // the type pass's: suffixes go into their nodes
    OUTLINE  // to be squeezed or listed only: tokens are not classed
};

class tree {
public:
    std::string text;
    std::vector<node> nodes;
    node_index root = NO_NODE;
    bool settled = true;
    file_places file;

    void clear();
    // Makes this the tree of a text: of one form if it begins with a parenthesis, whatever its last
    // byte is, else of one token.
    void read(std::string_view whole, reading how);
    // Adds the tree of source text, which stands at `place` in the joined text of its file.
    // `*sound` says whether it is one whole form in balance. Returns its root; NO_NODE for a
    // comment.
    node_index add_source(std::string source, SLO place, bool *sound);
    // Adds the tree of checked text. NO_NODE if it is not settled.
    node_index add_checked(std::string_view forms);
    // A form of the tree's own, without text or place.
    node_index add_form(isa_id word, node_index first);
    // The inside of an atom parsed as that of a form, an empty one for NO_NODE.
    node_index opened(node_index atom, reading how);

    // Makes an atom a string of these bytes, whatever they are.
    void make_string(node_index atom, std::string_view bytes);
    // Makes an atom of a form: its text is taken over byte for byte.
    void keep_as_it_stands(node_index form);

    std::string_view text_of(const node &n) const
    {
        return std::string_view(text).substr(n.text, n.size);
    }
    // A token as it is written, but for its suffix; where the tree is not settled, as it stands.
    std::string_view token_of(const node &n) const;
    // Where a node came from in its file; line 0 if it came from elsewhere.
    file_place place_of(const node &n) const;
    // Gives an atom another text, which is the tree's own, in the place of that it has.
    void replace_text(node *atom, std::string_view own);
    // The n of a formal argument $n, as far as its token says one.
    SLO argument_number(const node &n) const;
    // Appends the node as text, one blank between tokens.
    void write(node_index n, std::string *out) const;
    // The whole text.
    std::string written() const;
    // A pass has changed the tree.
    void settle(reading how);

private:
    // Where a part of the text, up to the next part, stands in the joined text of the file.
    struct part {
        ULO from;
        SLO place; // of its first byte; far below 0 if it is not of the file
    };
    SLO joined_place(ULO byte) const;
    std::string_view spelling(const node &n) const;
    std::vector<part> parts_;
};
