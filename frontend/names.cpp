// A table of open addresses, at most half full. Names leave it in the reverse order of their
// coming, so that an emptied place breaks no chain.

#include "frontend/names.h"

namespace {

std::uint32_t hash_of(std::string_view text)
{
    std::uint32_t hash = 2166136261;
    for (CHR c : text) hash = (hash ^ static_cast<UCH>(c)) * 16777619;
    return hash ^ hash >> 15;
}

} // namespace

// The place that holds the name, or the empty one where it belongs.
ULO name_table::place_of(std::string_view name, std::uint32_t hash) const
{
    const ULO mask = places_.size() - 1;
    ULO place = hash & mask;
    while (places_[place] != NO_NAME) {
        const name_id found = places_[place];
        if (entries_[found].hash == hash && text(found) == name) break;
        place = (place + 1) & mask;
    }
    return place;
}

void name_table::grow()
{
    places_.assign(places_.empty() ? 1024 : 2 * places_.size(), NO_NAME);
    for (name_id name = 0; name < count(); name++)
        places_[place_of(text(name), entries_[name].hash)] = name;
}

name_id name_table::enter(std::string_view name)
{
    if (2 * entries_.size() >= places_.size()) grow();
    const std::uint32_t hash = hash_of(name);
    name_id *place = &places_[place_of(name, hash)];
    if (*place != NO_NAME) return *place;
    *place = count();
    entries_.push_back({hash, static_cast<std::uint32_t>(name.size()), chars_.size()});
    chars_.append(name);
    return *place;
}

name_id name_table::find(std::string_view name) const
{
    return places_.empty() ? NO_NAME : places_[place_of(name, hash_of(name))];
}

void name_table::cut(name_id count_left)
{
    while (count() > count_left) {
        const entry &last = entries_.back();
        places_[place_of(text(count() - 1), last.hash)] = NO_NAME;
        chars_.resize(last.from);
        entries_.pop_back();
    }
}
