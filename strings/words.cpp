// Tokens: words between blanks, and tokens of the language. A token is found by a scan that stops
// at its end; what is left of the text is moved once.
#include "kestrin/strings.h"

#include "strings/block.h"
#include "strings/scratch.h"

namespace {

// Length of the word that `text` begins with.
size_t word_size(std::string_view text)
{
    size_t size = 0;
    while (size < text.size() && !is_blank(text[size])) ++size;
    return size;
}

// Length of the token that `text`, which does not begin with a blank, begins with. A text that ends
// inside quotes or a list is one token to its end.
size_t token_size(std::string_view text)
{
    bool quoted = false;
    ULO depth = 0;
    size_t i = 0;
    while (i < text.size()) {
        const CHR c = text[i];
        if (is_blank(c)) {
            if (depth == 0 && !quoted) return i;
        } else if (c == '"') {
            quoted = !quoted;
        } else if (quoted) {
            if (c == '\\') ++i;
        } else if (c == '(') {
            ++depth;
        } else if (c == ')') {
            if (depth == 0) return i;
            if (--depth == 0) return i + 1;
        }
        ++i;
    }
    return text.size();
}

} // namespace

CHR *head(CHR **targ, const CHR *source)
{
    const std::string_view text = without_front(view(source));
    return keep(targ, source, text.substr(0, word_size(text)));
}

CHR *tail(CHR **targ, const CHR *source)
{
    const std::string_view text = without_front(view(source));
    return keep(targ, source, without_front(text.substr(word_size(text))));
}

CHR *lsp_head(CHR **targ, const CHR *source)
{
    const std::string_view text = without_front(view(source));
    return keep(targ, source, without_back(text.substr(0, token_size(text))));
}

CHR *lsp_tail(CHR **targ, const CHR *source)
{
    const std::string_view text = without_front(view(source));
    return keep(targ, source, without_front(text.substr(token_size(text))));
}
