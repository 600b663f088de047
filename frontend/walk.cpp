// The walkers of text that has not been proved sound.

#include "frontend/walk.h"

#include "frontend/syntax.h"

bool kestrin_head(std::string_view *token, std::string_view text)
{
    const std::string_view rest = left_trimmed(text);
    const token_end end = end_of_token(rest, 0);
    if (!end.sound) {
        syntax_error<syntax::UNBALANCED>(text);
        return false;
    }
    *token = rest.substr(0, end.position);
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
