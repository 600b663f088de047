// Walking the tokens of a text. A token is a word, up to the next blank outside quotes, or a
// parenthesised list, which ends it. A pass makes the table of brackets of its text once; the walk
// of a form's tokens then steps over nested lists without looking at them, so that a pass costs
// time in proportion to the text, however deep its forms stand.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "kestrin/types.h"

constexpr bool is_blank(CHR c) { return static_cast<UCH>(c) <= 32; }

std::string_view left_trimmed(std::string_view text);
std::string_view right_trimmed(std::string_view text);
std::string_view trimmed(std::string_view text);

// For each opening parenthesis outside quotes its closing one. One that never closes reaches the
// end, and so does one in quotes, which a walk may come upon that began inside them.
class brackets {
public:
    explicit brackets(std::string_view text);
    // Whether all parentheses and quotes of the text close and none is too many.
    bool balanced() const { return balanced_; }
    ULO close_of(ULO open) const { return close_[open]; }

private:
    std::vector<std::uint32_t> close_;
    bool balanced_ = true;
};

// Walks the tokens of text[from, to), whose brackets are given. Stops at the end, and in unbalanced
// text at a closing parenthesis too many.
class token_walk {
public:
    token_walk(std::string_view text, const brackets &table, ULO from, ULO to)
        : text_(text.substr(0, to)), table_(&table), position_(from)
    {
    }
    // The next token; empty when there is none left.
    std::string_view next();
    // Where the last token starts in the text.
    ULO start() const { return start_; }

private:
    std::string_view text_;
    const brackets *table_;
    ULO position_;
    ULO start_ = 0;
};

// The first token of a text and what follows it without leading blanks. Text that is out of balance
// is split without a report; the token may then be empty where text is left.
std::string_view first_token(std::string_view text);
std::string_view behind_first_token(std::string_view text);

// The same for text that has not been proved sound: on unbalanced text a syntax error is left and
// the result is false.
bool kestrin_head(std::string_view *token, std::string_view text);
bool kestrin_tail(std::string_view *rest, std::string_view text);
