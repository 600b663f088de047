// Units are counted once for blocks of the text, so that a place costs the same in a line of any
// length.

#include "workshop/lsp_document.h"

#include <algorithm>

#include "workshop/fault.h"

namespace {

constexpr ULO BLOCK = 1024;

// Units of UTF-16 that the character of a byte takes; 0 for a byte that is not its first.
ULO units_of(CHR byte)
{
    return continues_character(byte) ? 0 : static_cast<UCH>(byte) < 0xF0 ? 1 : 2;
}

} // namespace

void document::forget()
{
    lines_.clear();
    names_.reset();
}

void document::replace(std::string text)
{
    text_ = std::move(text);
    forget();
}

void document::change(text_place from, text_place to, std::string_view text)
{
    const ULO begin = byte_at(from), end = std::max(begin, byte_at(to));
    text_.replace(begin, end - begin, text);
    forget();
}

void document::index() const
{
    if (!lines_.empty()) return;
    lines_.push_back(0);
    blocks_.clear();
    ULO count = 0;
    for (ULO i = 0; i < text_.size(); i++) {
        if (i % BLOCK == 0) blocks_.push_back(count);
        count += units_of(text_[i]);
        const bool ends_line = text_[i] == '\n' || (text_[i] == '\r' && text_[i + 1] != '\n');
        if (ends_line) lines_.push_back(i + 1);
    }
    blocks_.push_back(count);
}

ULO document::line_of(ULO byte) const
{
    const auto behind = std::upper_bound(lines_.begin(), lines_.end(), byte);
    return static_cast<ULO>(behind - lines_.begin()) - 1;
}

ULO document::end_of_line(ULO line) const
{
    if (line + 1 >= lines_.size()) return text_.size();
    const ULO next = lines_[line + 1];
    const bool has_two =
        text_[next - 1] == '\n' && next - lines_[line] > 1 && text_[next - 2] == '\r';
    return next - (has_two ? 2 : 1);
}

ULO document::units_ahead_of(ULO byte) const
{
    if (counted_ == units::UTF8) return byte;
    ULO count = blocks_[byte / BLOCK];
    for (ULO i = byte / BLOCK * BLOCK; i < byte; i++) count += units_of(text_[i]);
    return count;
}

// The last character in a range of bytes that begins no more than so many units behind the text's.
ULO document::byte_of_units(ULO wanted, ULO begin, ULO end) const
{
    const auto behind = std::upper_bound(blocks_.begin(), blocks_.end() - 1, wanted);
    const ULO blocks_ahead = static_cast<ULO>(behind - blocks_.begin());
    ULO byte = std::clamp(blocks_ahead == 0 ? 0 : (blocks_ahead - 1) * BLOCK, begin, end);
    for (ULO count = units_ahead_of(byte); byte < end; byte++) {
        count += units_of(text_[byte]);
        if (count > wanted) break;
    }
    return byte;
}

ULO document::byte_at(text_place place) const
{
    index();
    if (place.line >= lines_.size()) return text_.size();
    const ULO begin = lines_[place.line], end = end_of_line(place.line);
    const ULO wanted = units_ahead_of(begin) + std::min(place.character, text_.size());
    if (counted_ == units::UTF16) return byte_of_units(wanted, begin, end);
    ULO byte = std::min(wanted, end);
    while (byte > begin && byte < end && continues_character(text_[byte])) byte--;
    return byte;
}

text_place document::place_at(ULO byte) const
{
    index();
    const ULO line = line_of(byte);
    return {line, units_ahead_of(byte) - units_ahead_of(lines_[line])};
}

ULO document::line_end(ULO byte) const
{
    index();
    return end_of_line(line_of(byte));
}

const text_names &document::names() const
{
    if (names_ == nullptr) names_ = std::make_unique<text_names>(text_);
    return *names_;
}
