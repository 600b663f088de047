// Copy and release of the universal value. An array of one class is a run of machine values with a
// tag byte each; a mixed array is a run of records, which may be arrays again. Of nested arrays one
// is done after another, whatever their depth: those to come are a list that runs through their
// places 0. Where arrays are the engine's own, a copy of a mixed one shares its places.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "kestrin/strings.h"
#include "kestrin/value.h"
#include "vm/handler.h"
#include "vm/moves.h"
#include "vm/places.h"

FATAL_SITE(COPY_I_ARRAY, "kestrin", "copy_kst_data_", 7)
FATAL_SITE(COPY_I_TAGS, "kestrin", "copy_kst_data_", 8)
FATAL_SITE(COPY_F_ARRAY, "kestrin", "copy_kst_data_", 9)
FATAL_SITE(COPY_F_TAGS, "kestrin", "copy_kst_data_", 10)
FATAL_SITE(COPY_S_ARRAY, "kestrin", "copy_kst_data_", 11)
FATAL_SITE(COPY_S_TAGS, "kestrin", "copy_kst_data_", 12)
FATAL_SITE(COPY_Z_TAGS, "kestrin", "copy_kst_data_", 13)
FATAL_SITE(COPY_MIXED, "kestrin", "copy_kst_data_", 14)

namespace {

// Places of mixed arrays that wait for their turn.
class waiting_places {
public:
    // `source` are the places that the waiting ones are copied from, or NULL.
    void add(kestrin_data *places, ULO count, const kestrin_data *source)
    {
        kestrin_data &link = places[0];
        link.value.ival = static_cast<SLO>(count);
        link.svalue = reinterpret_cast<CHR *>(const_cast<kestrin_data *>(source));
        link.array.mix = first_;
        first_ = places;
    }
    // False if there are none.
    bool take(kestrin_data **places, ULO *count, const kestrin_data **source)
    {
        if (first_ == nullptr) return false;
        *places = first_;
        const kestrin_data &link = first_[0];
        *count = static_cast<ULO>(link.value.ival);
        *source = reinterpret_cast<const kestrin_data *>(link.svalue);
        (*places)[0].value.ival = 0; // nobody shares what is being made
        first_ = link.array.mix;
        return true;
    }

private:
    kestrin_data *first_ = nullptr;
};

// -- Shared places -----------------------------------------------------------------------------

void join(kestrin_data *places) { places[0].value.ival++; }
void leave(kestrin_data *places) { places[0].value.ival--; }

// Whether a copy of the first `n` places may share them: with a unit's instructions it may not.
bool may_share(const kestrin_data *source, ULO n)
{
    return the_engine.small_arrays && !source->single && source->arraytype == 0 &&
           source->array.mix != nullptr && n == source->indices_numb;
}

// For a record that has no array; the places have been joined.
void share_places(kestrin_data *dest, const kestrin_data *source)
{
    const ULO owned = owned_places(source);
    dest->arraytype = 0;
    dest->array.mix = source->array.mix;
    dest->indices_numb = array_capacity(source->indices_numb - 1);
    set_owned_places(dest, owned);
}

// -- Release -----------------------------------------------------------------------------------

void free_strings(CHR **places, ULO from, ULO to)
{
    for (ULO i = from; i < to; i++) free_string(&places[i]);
}

// What the record owns but the members of a mixed array, which are to be freed with their places.
void free_own(kestrin_data *d, waiting_places *waiting)
{
    free_string(&d->svalue);
    if (is_shared(d)) return leave(d->array.mix);
    if (d->arraytype == 0) {
        if (d->array.mix != nullptr) waiting->add(d->array.mix, owned_places(d), nullptr);
        return;
    }
    if (d->arraytype == 'S') free_strings(d->array.svalue, 1, owned_places(d));
    free(d->array.mix);
    free(d->aready_tags);
}

void free_waiting(waiting_places *waiting)
{
    kestrin_data *places;
    const kestrin_data *none;
    for (ULO count; waiting->take(&places, &count, &none); drop_places(places, count))
        for (ULO i = 1; i < count; i++)
            if (!owns_nothing(&places[i])) free_own(&places[i], waiting);
}

// Members of an array that goes on without them.
void free_members(kestrin_data *places, ULO from, ULO to)
{
    waiting_places waiting;
    for (ULO i = from; i < to; i++) {
        if (!owns_nothing(&places[i])) free_own(&places[i], &waiting);
        places[i] = fresh_variable;
    }
    free_waiting(&waiting);
}

// -- Copy --------------------------------------------------------------------------------------

// The record's own value, member 0 of an array. A text that there is no memory for, if a fault hook
// lets that pass, leaves the old one.
void copy_single(kestrin_data *dest, const kestrin_data *source)
{
    dest->type = source->type;
    dest->value = source->value;
    if (source->type == 'S')
        equ(&dest->svalue, source->svalue);
    else
        free_string(&dest->svalue);
}

// A copy of the first `n` places of an array into a record that has none or one of the same class.
struct array_copy {
    kestrin_data *dest;
    const kestrin_data *source;
    ULO n;
    ULO size = array_capacity(n - 1);                    // places to report
    ULO with_memory = std::min(n, owned_places(source)); // places to copy
    ULO old = owned_places(dest);
    ULO own = dest->indices_numb == size ? std::max(old, places_to_own(with_memory - 1))
                                         : places_to_own(with_memory - 1);
};

bool copy_tags(const array_copy &c, const fatal_site &site)
{
    if (!grow_tags(c.dest, c.size, site)) return false;
    memcpy(c.dest->aready_tags + 1, c.source->aready_tags + 1, c.n - 1);
    // Nothing of an earlier, longer array stays behind the last copied member.
    memset(c.dest->aready_tags + c.n, 0, c.size - c.n);
    return true;
}

bool copy_numbers(const array_copy &c, const fatal_site &places, const fatal_site &tags)
{
    if (!grow_places(&c.dest->array.ival, c.old, c.own, places) || !copy_tags(c, tags))
        return false;
    memcpy(c.dest->array.ival + 1, c.source->array.ival + 1, (c.with_memory - 1) * sizeof(SLO));
    return true;
}

bool copy_strings(const array_copy &c)
{
    if (c.with_memory < c.old) free_strings(c.dest->array.svalue, c.with_memory, c.old);
    if (!grow_places(&c.dest->array.svalue, c.old, c.own, site::COPY_S_ARRAY)) return false;
    CHR **to = c.dest->array.svalue;
    for (ULO i = c.old; i < c.own; i++) to[i] = nullptr;
    if (!copy_tags(c, site::COPY_S_TAGS)) return false;
    for (ULO i = 1; i < c.with_memory; i++) {
        if (c.source->aready_tags[i] != 0)
            equ(&to[i], c.source->array.svalue[i]);
        else
            free_string(&to[i]);
    }
    return true;
}

// The members follow when their turn comes.
bool copy_mixed(const array_copy &c, waiting_places *waiting)
{
    if (c.with_memory < c.old) free_members(c.dest->array.mix, c.with_memory, c.old);
    if (!grow_places(&c.dest->array.mix, c.old, c.own, site::COPY_MIXED)) return false;
    for (ULO i = c.old; i < c.own; i++) c.dest->array.mix[i] = fresh_variable;
    waiting->add(c.dest->array.mix, c.with_memory, c.source->array.mix);
    return true;
}

bool copy_places(const array_copy &c, waiting_places *waiting)
{
    c.dest->arraytype = c.source->arraytype;
    bool done = true;
    switch (c.source->arraytype) {
    case 'I': done = copy_numbers(c, site::COPY_I_ARRAY, site::COPY_I_TAGS); break;
    case 'F': done = copy_numbers(c, site::COPY_F_ARRAY, site::COPY_F_TAGS); break;
    case 'S': done = copy_strings(c); break;
    case 'Z': done = copy_tags(c, site::COPY_Z_TAGS); break;
    default: done = copy_mixed(c, waiting);
    }
    if (!done) return false;
    c.dest->indices_numb = c.size;
    if (c.source->arraytype != 'Z') set_owned_places(c.dest, c.own);
    return true;
}

// An alias and its variable have the same buffers: nothing to copy, and nothing may be freed. Only
// a shorter count acts. Two arrays that share all that they have may be taken for such a pair.
bool is_alias(const kestrin_data *dest, const kestrin_data *source)
{
    if (source->disable_ptr || dest->svalue != source->svalue) return false;
    return dest->svalue != nullptr ||
           (dest->array.mix != nullptr && dest->array.mix == source->array.mix) ||
           (dest->aready_tags != nullptr && dest->aready_tags == source->aready_tags);
}

void shorten(kestrin_data *d, ULO n)
{
    if (!own_places(d)) return;
    const ULO owned = owned_places(d);
    if (d->arraytype == 'S')
        free_strings(d->array.svalue, n, owned);
    else if (d->arraytype == 0)
        free_members(d->array.mix, n, owned);
    if (d->aready_tags != nullptr) memset(d->aready_tags + n, 0, d->indices_numb - n);
}

void copy_alias(kestrin_data *dest, const kestrin_data *source, ULO n)
{
    if (!source->single && n < dest->indices_numb) shorten(dest, n);
    dest->single = source->single;
    dest->type = source->type;
    dest->value = source->value;
}

// Everything but the members of a mixed array. False when memory ran out.
bool copy_record(kestrin_data *dest, const kestrin_data *source, ULO n, waiting_places *waiting)
{
    if (n == 0 || n > source->indices_numb) n = source->indices_numb;
    if (is_alias(dest, source)) {
        copy_alias(dest, source, n);
        return true;
    }
    const bool sharing = may_share(source, n);
    if (sharing) join(source->array.mix);
    if (dest->arraytype != source->arraytype || source->single || sharing || is_shared(dest)) {
        if (source->single && source->type == 'S') // keeps the buffer of a string for the next
            free_array_of(dest);
        else
            free_kst_data(dest);
    }
    copy_single(dest, source);
    dest->single = source->single;
    if (sharing) share_places(dest, source);
    return source->single || sharing || copy_places({dest, source, n}, waiting);
}

// Members with nothing but a value are the most.
inline bool copy_plain(kestrin_data *dest, const kestrin_data *source)
{
    if (!owns_nothing(source) || source->type == 'S') return false;
    *dest = *source;
    dest->disable_ptr = 0;
    return true;
}

bool copy_member(kestrin_data *dest, const kestrin_data *source, waiting_places *waiting)
{
    if (owns_nothing(dest) && copy_plain(dest, source)) return true;
    if (copy_record(dest, source, 0, waiting)) return true;
    if (dest->indices_numb < 2) free_kst_data(dest);
    return false;
}

} // namespace

void free_array_of(kestrin_data *d)
{
    if (d->array.mix != nullptr || d->aready_tags != nullptr) {
        CHR *const kept = std::exchange(d->svalue, nullptr);
        waiting_places waiting;
        free_own(d, &waiting);
        free_waiting(&waiting);
        d->svalue = kept;
    }
    d->single = 1;
    d->type = 0;
    d->arraytype = 0;
    d->indices_numb = 1;
    d->aready_tags = nullptr;
    d->array.mix = nullptr;
}

bool end_sharing(kestrin_data *d)
{
    kestrin_data *const shared = d->array.mix, *own = nullptr;
    const ULO owned = owned_places(d);
    if (!grow_places(&own, 0, owned, site::COPY_MIXED)) return false;
    own[0] = fresh_variable;
    waiting_places none; // nested places are shared in their turn
    for (ULO i = 1; i < owned; i++) {
        if (copy_plain(&own[i], &shared[i])) continue;
        own[i] = fresh_variable;
        if (copy_member(&own[i], &shared[i], &none)) continue;
        free_members(own, 1, i + 1);
        drop_places(own, owned);
        return false;
    }
    leave(shared);
    d->array.mix = own;
    set_owned_places(d, owned);
    return true;
}

void copy_kst_data(kestrin_data *dest, const kestrin_data *source, ULO indices_numb)
{
    if (dest == source) return;
    const bool alias = dest->svalue != nullptr && dest->svalue == source->svalue;
    if (source->single && dest->array.mix == nullptr && dest->aready_tags == nullptr && !alias) {
        copy_single(dest, source);
        dest->single = 1;
        return;
    }
    waiting_places waiting;
    if (!copy_record(dest, source, indices_numb, &waiting)) return;
    kestrin_data *places;
    const kestrin_data *from;
    for (ULO count; waiting.take(&places, &count, &from);)
        for (ULO i = 1; i < count; i++)
            if (!copy_member(&places[i], &from[i], &waiting)) return;
}

// One by one: both records have most likely just been written so, and a load of two fields would
// wait for the stores.
static void take_fields(kestrin_data *dest, kestrin_data *source)
{
    dest->single = source->single;
    dest->type = source->type;
    dest->arraytype = source->arraytype;
    dest->value = source->value;
    dest->svalue = source->svalue;
    dest->indices_numb = source->indices_numb;
    dest->aready_tags = source->aready_tags;
    dest->array.mix = source->array.mix;
    *source = source->disable_ptr ? owning_slot : fresh_variable;
}

void take_value(kestrin_data *dest, kestrin_data *source)
{
    if (set_number(dest, source)) return;
    if (source->single && source->type != 'S') return copy_kst_data(dest, source, 0);
    if (source->single) {
        free_array_of(dest);
        std::swap(dest->svalue, source->svalue);
        dest->type = 'S';
        return;
    }
    if (source->indices_numb % PLACES_STEP != 0) { // mapcar's answer has places of its own number
        if (!the_engine.small_arrays) return copy_kst_data(dest, source, 0);
        set_owned_places(source, source->indices_numb);
        source->indices_numb = PLACES_STEP;
    }
    if (owns_nothing(dest)) return take_fields(dest, source);
    kestrin_data old = *dest;
    take_fields(dest, source);
    release(&old);
}

void free_kst_data(kestrin_data *ret_dat)
{
    free_string(&ret_dat->svalue);
    free_array_of(ret_dat);
}
