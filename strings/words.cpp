// Tokens: words between blanks, and tokens of the language. A token is found by a scan that stops
// at its end; what is left of the text is moved once.
#include "kestrin/strings.h"

#include "strings/block.h"
#include "strings/scratch.h"
#include "strings/tokens.h"

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

std::string_view first_token(std::string_view text)
{
    text = left_trimmed(text);
    return text.substr(0, end_of_token(text, 0).position);
}

std::string_view behind_first_token(std::string_view text)
{
    text = left_trimmed(text);
    return left_trimmed(text.substr(end_of_token(text, 0).position));
}

CHR *head(CHR **targ, const CHR *source)
{
    return keep(targ, source, first_word(left_trimmed(view(source))));
}

CHR *tail(CHR **targ, const CHR *source)
{
    const std::string_view text = left_trimmed(view(source));
    return keep(targ, source, left_trimmed(text.substr(first_word(text).size())));
}

CHR *lsp_head(CHR **targ, const CHR *source)
{
    return keep(targ, source, right_trimmed(first_token(view(source))));
}

CHR *lsp_tail(CHR **targ, const CHR *source)
{
    return keep(targ, source, behind_first_token(view(source)));
}
