// The tokens of a text. A token is a word, up to the next blank outside quotes, or a parenthesised
// list, which ends it. Inside quotes the backslash hides the next byte and parentheses are plain
// text; outside quotes a backslash is a plain byte.
#pragma once

#include <string_view>

#include "kestrin/types.h"

constexpr bool is_blank(CHR c) { return static_cast<UCH>(c) <= 32; }

std::string_view left_trimmed(std::string_view text);
std::string_view right_trimmed(std::string_view text);
std::string_view trimmed(std::string_view text);

// Behind a string part whose opening quote stands at `at`; more than the text's size if it does not
// close.
ULO behind_quotes(std::string_view text, ULO at);

// Where a token that begins at `from`, with no blank, ends.
struct token_end {
    ULO position;
    bool sound; // no parenthesis too many, none and no quotes open at the end
};
token_end end_of_token(std::string_view text, ULO from);

// The first token of a text and what follows it without leading blanks. Text that is out of balance
// is split without a report; the token may then be empty where text is left.
std::string_view first_token(std::string_view text);
std::string_view behind_first_token(std::string_view text);

// The same for text that has not been proved sound: on unbalanced text a syntax error is left and
// the result is false.
bool kestrin_head(std::string_view *token, std::string_view text);
bool kestrin_tail(std::string_view *rest, std::string_view text);
