// A table of open addresses, at most half full. Names leave it in the reverse order of their
// coming, so that an emptied place breaks no chain.

#include "frontend/names.h"

#include <algorithm>
#include <cstring>

namespace {

template <class T> ULO load(const CHR *from)
{
    T word = 0;
    memcpy(&word, from, sizeof word);
    return word;
}

// The first bytes as a word: of texts of one size no two shorter ones have the same.
ULO head_of(std::string_view text)
{
    const CHR *s = text.data();
    const ULO size = text.size();
    if (size >= 8) return load<ULO>(s);
    if (size >= 4) return load<std::uint32_t>(s) | load<std::uint32_t>(s + size - 4) << 32;
    if (size == 0) return 0;
    return load<UCH>(s) | load<UCH>(s + size / 2) << 8 | load<UCH>(s + size - 1) << 16;
}

} // namespace

name_table::entry name_table::entry_of(std::string_view text)
{
    constexpr ULO factor = 0x9E3779B97F4A7C15;
    entry made = {head_of(text), 0, static_cast<std::uint32_t>(text.size()), 0};
    ULO hash = (made.head ^ text.size()) * factor;
    for (ULO i = 8; i < text.size(); i += 8)
        hash =
            ((hash ^ hash >> 32) + load<ULO>(text.data() + std::min(i, text.size() - 8))) * factor;
    // The last bytes of a short name have only reached the upper bits.
    hash = (hash ^ hash >> 32) * factor;
    made.hash = static_cast<std::uint32_t>(hash >> 32);
    return made;
}

// The place that holds the name, or the empty one where it belongs.
ULO name_table::place_of(std::string_view name, const entry &wanted) const
{
    const ULO mask = places_.size() - 1;
    ULO place = wanted.hash & mask;
    while (places_[place] != NO_NAME) {
        const entry &found = entries_[places_[place]];
        const bool begins_alike = found.head == wanted.head && found.size == wanted.size;
        if (begins_alike && (wanted.size <= 8 || text(places_[place]) == name)) break;
        place = (place + 1) & mask;
    }
    return place;
}

void name_table::grow()
{
    places_.assign(places_.empty() ? 1024 : 2 * places_.size(), NO_NAME);
    for (name_id name = 0; name < count(); name++)
        places_[place_of(text(name), entries_[name])] = name;
}

name_id name_table::enter(std::string_view name)
{
    if (2 * entries_.size() >= places_.size()) grow();
    entry made = entry_of(name);
    name_id *place = &places_[place_of(name, made)];
    if (*place != NO_NAME) return *place;
    *place = count();
    made.from = chars_.size();
    entries_.push_back(made);
    chars_.append(name);
    return *place;
}

name_id name_table::find(std::string_view name) const
{
    return places_.empty() ? NO_NAME : places_[place_of(name, entry_of(name))];
}

void name_table::cut(name_id count_left)
{
    while (count() > count_left) {
        const entry last = entries_.back();
        places_[place_of(text(count() - 1), last)] = NO_NAME;
        chars_.resize(last.from);
        entries_.pop_back();
    }
}
