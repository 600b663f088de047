// Words and tokens of a text. A word goes up to the next blank. A token is a word whose blanks may
// stand in quotes, or a parenthesised list, which ends it. Inside quotes the backslash hides the
// next byte and parentheses are plain text; outside quotes a backslash is a plain byte.
#pragma once

#include <string_view>

#include "kestrin/types.h"

constexpr bool is_blank(CHR c) { return static_cast<UCH>(c) <= ' '; }

// Text without its leading blanks, its trailing ones, or both.
constexpr std::string_view left_trimmed(std::string_view text)
{
    while (!text.empty() && is_blank(text.front())) text.remove_prefix(1);
    return text;
}
constexpr std::string_view right_trimmed(std::string_view text)
{
    while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
    return text;
}
constexpr std::string_view trimmed(std::string_view text)
{
    return left_trimmed(right_trimmed(text));
}

// The word that a text begins with.
constexpr std::string_view first_word(std::string_view text)
{
    ULO size = 0;
    while (size < text.size() && !is_blank(text[size])) size++;
    return text.substr(0, size);
}

// Whether every byte of a text is one of these.
constexpr bool consists_of(std::string_view text, std::string_view letters)
{
    return text.find_first_not_of(letters) == text.npos;
}

// What a text holds that stands in parentheses or quotes.
constexpr std::string_view inside(std::string_view text)
{
    return text.size() < 2 ? std::string_view() : text.substr(1, text.size() - 2);
}
constexpr bool is_list(std::string_view token)
{
    return token.size() >= 2 && token.front() == '(' && token.back() == ')';
}

// Behind a string part whose opening quote stands at `at`; more than the text's size if it does not
// close.
ULO behind_quotes(std::string_view text, ULO at);

// Where a token that begins at `from`, with no blank, ends. One that does not close is all of the
// rest.
struct token_end {
    ULO position;
    bool sound; // no parenthesis too many, none and no quotes open at the end
};
token_end end_of_token(std::string_view text, ULO from);

// The first token of a text and what follows it without leading blanks. Text that is out of balance
// is split without a report; the token may then be empty where text is left.
std::string_view first_token(std::string_view text);
std::string_view behind_first_token(std::string_view text);
