// The outline of a source text: its forms, tokens and comments as they stand there, nothing left
// out but blanks. Tokens end where the language ends them.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "frontend/groups.h"
#include "frontend/places.h"

using piece_index = std::uint32_t;
constexpr piece_index NO_PIECE = UINT32_MAX;

enum class piece_kind : UCH {
    TOKEN,  // anything but a form
    FORM,   // its pieces are its first word, its arguments and what is remarked between them
    NOTE,   // a comment up to the end of its line
    REMARK, // a form whose word begins a comment; what is in it is not looked at
};

struct piece {
    piece_kind kind;
    // It begins on the line on which the piece ahead of it, or the parenthesis, ends.
    bool same_line = false;
    bool blank_ahead = false;     // an empty line stands ahead of it
    std::string_view text = {};   // all of it; a note begins with its '#' and ends with no blank
    file_place begin = {};        // of the first byte
    ULO last_line = 0;            // that it touches
    group_set groups = 0;         // of a form's first word
    piece_index first = NO_PIECE; // in a form
    piece_index next = NO_PIECE;  // in the same form

    bool is_code() const { return kind == piece_kind::TOKEN || kind == piece_kind::FORM; }
};

// The pieces; the first is a form that stands for the whole text. A piece stands ahead of those in
// it. A note at the end of a form's last line belongs to the form: it stands behind it.
using outline = std::vector<piece>;

// Outlines a text, which has to live as long. Where quotes and parentheses are out of balance, a
// string ends with its line, a form that is not closed with the text, and a closing parenthesis too
// many is passed over. `is_balanced`, if not NULL, learns whether they are in balance.
outline outline_of(std::string_view text, bool *is_balanced = nullptr);
