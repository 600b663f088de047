// Member places of arrays: how many an array reports, how many of them have memory, their growth,
// and who shares them.
//
// An array reports 128 places or a multiple, and of the first 128 it owns as many as are used,
// doubled when there are too few. How many stands in place 0, which holds no member: in the record
// there of a mixed array, in the tag there of a typed one. Tags are whole always, and the tag of a
// place without memory is zero, so that only who stores, copies or frees asks what is owned.
//
// A copy of a whole mixed array shares its places until one of the two is changed. How many records
// hold the places besides the first one stands in place 0 as well.
#pragma once

#include <bit>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "kestrin/value.h"
#include "strings/large_pages.h"
#include "strings/state.h"
#include "vm/engine.h"
#include "vm/machine.h"

constexpr ULO PLACES_STEP = 128, FEWEST_PLACES = 4;

// Places that an array with a member of this index reports: steps of 128, so that growth by one
// member stays cheap. Saturates where no memory could hold them.
inline ULO array_capacity(ULO index)
{
    constexpr ULO most = ULO(1) << 56;
    return index >= most ? most : (index & ~(PLACES_STEP - 1)) + PLACES_STEP;
}

// Places that it needs to own.
inline ULO places_to_own(ULO index)
{
    if (!the_engine.small_arrays || index >= PLACES_STEP / 2) return array_capacity(index);
    return index < FEWEST_PLACES ? FEWEST_PLACES : std::bit_ceil(index + 1);
}

// Places with memory; 0 if the record has no array.
inline ULO owned_places(const kestrin_data *d)
{
    if (d->array.mix == nullptr) return 0;
    if (d->indices_numb != PLACES_STEP || !the_engine.small_arrays) return d->indices_numb;
    const ULO owned = d->arraytype != 0 ? d->aready_tags[0] : d->array.mix[0].indices_numb;
    return owned > 1 ? owned : PLACES_STEP; // an extension unit's own array says nothing
}
inline void set_owned_places(kestrin_data *d, ULO owned)
{
    if (d->arraytype == 0)
        d->array.mix[0].indices_numb = owned;
    else
        d->aready_tags[0] = owned < PLACES_STEP ? static_cast<UCH>(owned) : 0;
}

// True for an array that shares its places. An extension unit's own array says nothing.
inline bool is_shared(const kestrin_data *d)
{
    return d->arraytype == 0 && d->array.mix != nullptr && d->array.mix[0].value.ival != 0 &&
           the_engine.small_arrays;
}
// Gives a record places of its own instead. False, with nothing changed, if there is no memory.
bool end_sharing(kestrin_data *d);

// Before places are changed.
inline bool own_places(kestrin_data *d) { return !is_shared(d) || end_sharing(d); }

// Places of 8 MB take addresses for 64 MB at once and stand in large pages, which stay whole as the
// array grows. Beyond that, or moved, they would be split, and the last one half empty.
constexpr ULO LARGE_BYTES = ULO(8) << 20, RESERVED_BYTES = ULO(64) << 20;
template <class T> bool is_large_array(ULO size)
{
    return the_engine.reserves && !std::is_same_v<T, UCH> && size >= LARGE_BYTES / sizeof(T) &&
           size <= RESERVED_BYTES / sizeof(T);
}

// Places that are allocated for so many: some more in a large array, for a reallocation costs a
// system call. Nothing touches the rest. An extension unit's own arrays have none.
template <class T> ULO places_to_allocate(ULO size)
{
    if (is_large_array<T>(size)) return RESERVED_BYTES / sizeof(T);
    if (!the_engine.small_arrays || size < 1024) return size;
    const ULO step = std::bit_floor(size) / 8;
    return (size + step - 1) & ~(step - 1); // step is a power of two
}

// Most arrays have the fewest places, and programs that build trees drop as many as they make: such
// blocks go from one array to the next without the allocator. NULL if there is none.
#ifdef __SANITIZE_ADDRESS__
constexpr ULO MOST_SPARE = 0; // the sanitizer is to see the end of each
#else
constexpr ULO MOST_SPARE = 256;
#endif

inline kestrin_data *take_spare_places()
{
    rt_control *rt = rt_ctrl;
    kestrin_data *places = rt->spare;
    if (places == nullptr) return nullptr;
    rt->spare = places->array.mix;
    rt->spare_count--;
    return places;
}
// The end of places whose members are freed.
inline void drop_places(kestrin_data *places, ULO count)
{
    if (count != FEWEST_PLACES || !the_engine.small_arrays || rt_ctrl->spare_count == MOST_SPARE)
        return free(places);
    places->array.mix = rt_ctrl->spare;
    rt_ctrl->spare = places;
    rt_ctrl->spare_count++;
}

// Reallocates a run of `old` places, 0 if there is none yet. Returns false if memory ran out and
// the thread's fault hook let the machine go on.
template <class T> bool grow_places(T **places, ULO old, ULO size, const fatal_site &site)
{
    if (old != 0 && places_to_allocate<T>(old) == places_to_allocate<T>(size)) return true;
    if constexpr (std::is_same_v<T, kestrin_data>)
        if (old == 0 && size == FEWEST_PLACES && (*places = take_spare_places())) return true;
    size = places_to_allocate<T>(size);
    ULO bytes = 0;
    void *grown = nullptr;
    if (!__builtin_mul_overflow(size, ULO(sizeof(T)), &bytes)) grown = realloc(*places, bytes);
    if (grown == nullptr) {
        memory_fault(site);
        return false;
    }
    *places = static_cast<T *>(grown);
    if (is_large_array<T>(size))
        use_large_pages(grown, bytes);
    else if (bytes > RESERVED_BYTES)
        use_small_pages(grown, bytes);
    return true;
}

// The same for the tag bytes; new ones are zero.
inline bool grow_tags(kestrin_data *d, ULO size, const fatal_site &site)
{
    const ULO old = d->aready_tags == nullptr ? 0 : d->indices_numb;
    if (!grow_places(&d->aready_tags, old, size, site)) return false;
    if (size > old) memset(d->aready_tags + old, 0, size - old);
    return true;
}
