// Growth of the member places of arrays.
#pragma once

#include <cstdlib>
#include <cstring>

#include "kestrin/value.h"
#include "strings/state.h"

// Places that an array with a member of this index has: steps of 128, so that growth by one member
// stays cheap. Saturates where no memory could hold them.
inline ULO array_capacity(ULO index)
{
    constexpr ULO most = ULO(1) << 56;
    return index >= most ? most : (index & ~ULO(127)) + 128;
}

// Reallocates a run of places. Returns false if memory ran out and the thread's fault hook let the
// machine go on.
template <class T> bool grow_places(T **places, ULO size, fatal_site site)
{
    ULO bytes = 0;
    void *grown = nullptr;
    if (!__builtin_mul_overflow(size, ULO(sizeof(T)), &bytes)) grown = realloc(*places, bytes);
    if (grown == nullptr) {
        memory_fault(site);
        return false;
    }
    *places = static_cast<T *>(grown);
    return true;
}

// The same for the tag bytes; new ones are zero.
inline bool grow_tags(kestrin_data *d, ULO size, fatal_site site)
{
    const ULO old = d->aready_tags == nullptr ? 0 : d->indices_numb;
    if (!grow_places(&d->aready_tags, size, site)) return false;
    if (size > old) memset(d->aready_tags + old, 0, size - old);
    return true;
}
