// The scanners of tokens.

#include "frontend/walk.h"

#include <algorithm>

#include "frontend/syntax.h"

namespace {

ULO first_nonblank(std::string_view text)
{
    ULO i = 0;
    while (i < text.size() && is_blank(text[i])) i++;
    return i;
}

} // namespace

ULO behind_quotes(std::string_view text, ULO at)
{
    ULO i = at + 1;
    while (i < text.size() && text[i] != '"') i += text[i] == '\\' ? 2 : 1;
    return i + 1;
}

token_end end_of_token(std::string_view text, ULO from)
{
    ULO depth = 0, i = from;
    while (i < text.size()) {
        const CHR c = text[i];
        if (is_blank(c) && depth == 0) return {i, true};
        if (c == '"') {
            i = behind_quotes(text, i);
            continue;
        }
        if (c == '(') depth++;
        if (c == ')') {
            if (depth == 0) return {i, false};
            if (--depth == 0) return {i + 1, true};
        }
        i++;
    }
    return {text.size(), depth == 0 && i == text.size()};
}

std::string_view left_trimmed(std::string_view text) { return text.substr(first_nonblank(text)); }

std::string_view right_trimmed(std::string_view text)
{
    while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
    return text;
}

std::string_view trimmed(std::string_view text) { return left_trimmed(right_trimmed(text)); }

std::string_view first_token(std::string_view text)
{
    const ULO from = first_nonblank(text);
    return text.substr(from, end_of_token(text, from).position - from);
}

std::string_view behind_first_token(std::string_view text)
{
    return left_trimmed(text.substr(end_of_token(text, first_nonblank(text)).position));
}

bool kestrin_head(std::string_view *token, std::string_view text)
{
    const ULO from = first_nonblank(text);
    const token_end end = end_of_token(text, from);
    if (!end.sound) {
        syntax_error<syntax::UNBALANCED>(text);
        return false;
    }
    *token = text.substr(from, end.position - from);
    return true;
}

bool kestrin_tail(std::string_view *rest, std::string_view text)
{
    text = left_trimmed(text);
    std::string_view token;
    if (!kestrin_head(&token, text)) return false;
    *rest = left_trimmed(text.substr(token.size()));
    return true;
}
