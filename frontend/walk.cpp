// The token scanners. All follow one rule: inside quotes the backslash hides the next byte and
// parentheses are plain text; outside quotes a backslash is a plain byte.

#include "frontend/walk.h"

#include <algorithm>

#include "frontend/syntax.h"
#include "strings/fatal.h"

namespace {

// The end of a string part whose opening quote stands at `at`: behind its closing quote, or the
// end.
ULO behind_quotes(std::string_view text, ULO at)
{
    ULO i = at + 1;
    while (i < text.size() && text[i] != '"') i += text[i] == '\\' ? 2 : 1;
    return std::min<ULO>(i + 1, text.size() + 1);
}

// Where a scan of the first token stops, from a first byte that is no blank.
struct scan_end {
    ULO position;
    bool sound; // no parenthesis too many, none and no quotes open at the end
};

scan_end scan_token(std::string_view text, ULO from)
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

ULO first_nonblank(std::string_view text)
{
    ULO i = 0;
    while (i < text.size() && is_blank(text[i])) i++;
    return i;
}

} // namespace

std::string_view left_trimmed(std::string_view text) { return text.substr(first_nonblank(text)); }

std::string_view right_trimmed(std::string_view text)
{
    while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
    return text;
}

std::string_view trimmed(std::string_view text) { return left_trimmed(right_trimmed(text)); }

brackets::brackets(std::string_view text)
{
    if (text.size() >= UINT32_MAX) fatal(fatal_site::MEMORY_NEW);
    close_.assign(text.size(), static_cast<std::uint32_t>(text.size()));
    std::vector<std::uint32_t> open;
    ULO i = 0;
    while (i < text.size()) {
        if (text[i] == '"') {
            i = behind_quotes(text, i);
            continue;
        }
        if (text[i] == '(')
            open.push_back(static_cast<std::uint32_t>(i));
        else if (text[i] == ')') {
            if (open.empty())
                balanced_ = false;
            else {
                close_[open.back()] = static_cast<std::uint32_t>(i);
                open.pop_back();
            }
        }
        i++;
    }
    if (i != text.size() || !open.empty()) balanced_ = false;
}

std::string_view token_walk::next()
{
    ULO i = position_;
    while (i < text_.size() && is_blank(text_[i])) i++;
    start_ = i;
    while (i < text_.size() && !is_blank(text_[i]) && text_[i] != ')') {
        if (text_[i] == '(') {
            i = std::min<ULO>(table_->close_of(i) + 1, text_.size());
            break;
        }
        i = text_[i] == '"' ? std::min<ULO>(behind_quotes(text_, i), text_.size()) : i + 1;
    }
    position_ = i;
    return text_.substr(start_, i - start_);
}

std::string_view first_token(std::string_view text)
{
    const ULO from = first_nonblank(text);
    return text.substr(from, scan_token(text, from).position - from);
}

std::string_view behind_first_token(std::string_view text)
{
    return left_trimmed(text.substr(scan_token(text, first_nonblank(text)).position));
}

bool kestrin_head(std::string_view *token, std::string_view text)
{
    const ULO from = first_nonblank(text);
    const scan_end end = scan_token(text, from);
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
