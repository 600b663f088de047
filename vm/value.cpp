// Copy and release of the universal value. An array of one class is a run of machine values with a
// tag byte each; a mixed array is a run of records, which may be arrays again.

#include <cstdlib>
#include <cstring>

#include "kestrin/strings.h"
#include "kestrin/value.h"
#include "strings/state.h"
#include "vm/handler.h"
#include "vm/places.h"
#include "vm/stack.h"

namespace {

bool is_class(UCH arraytype, const char *letters)
{
    return arraytype != 0 && strchr(letters, arraytype) != nullptr;
}

void free_strings(CHR **places, ULO from, ULO to)
{
    for (ULO i = from; i < to; i++) free_string(&places[i]);
}

void free_members(kestrin_data *places, ULO from, ULO to)
{
    for (ULO i = from; i < to; i++) release(&places[i]);
}

void free_array(kestrin_data *d)
{
    if (d->arraytype == 'S' && d->array.svalue != nullptr)
        free_strings(d->array.svalue, 1, d->indices_numb);
    else if (d->arraytype == 0 && d->array.mix != nullptr)
        free_members(d->array.mix, 1, d->indices_numb);
    if (d->arraytype != 'Z') free(d->array.mix);
    free(d->aready_tags);
}

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

bool copy_numbers(kestrin_data *dest, const kestrin_data *source, ULO n, ULO size)
{
    const bool integers = dest->arraytype == 'I';
    if (!grow_places(&dest->array.ival, size,
                     integers ? fatal_site::COPY_I_ARRAY : fatal_site::COPY_F_ARRAY))
        return false;
    if (!grow_tags(dest, size, integers ? fatal_site::COPY_I_TAGS : fatal_site::COPY_F_TAGS))
        return false;
    memcpy(dest->aready_tags + 1, source->aready_tags + 1, n - 1);
    memcpy(dest->array.ival + 1, source->array.ival + 1, (n - 1) * sizeof(SLO));
    return true;
}

bool copy_strings(kestrin_data *dest, const kestrin_data *source, ULO n, ULO size)
{
    const ULO old = dest->indices_numb;
    if (dest->array.svalue != nullptr && n < old) free_strings(dest->array.svalue, n, old);
    if (!grow_places(&dest->array.svalue, size, fatal_site::COPY_S_ARRAY)) return false;
    const ULO kept = dest->aready_tags == nullptr ? 1 : old;
    for (ULO i = kept; i < size; i++) dest->array.svalue[i] = nullptr;
    if (!grow_tags(dest, size, fatal_site::COPY_S_TAGS)) return false;
    for (ULO i = 1; i < n; i++) {
        dest->aready_tags[i] = source->aready_tags[i];
        if (source->aready_tags[i] != 0)
            equ(&dest->array.svalue[i], source->array.svalue[i]);
        else
            free_string(&dest->array.svalue[i]);
    }
    return true;
}

bool copy_kst_data_(kestrin_data *dest, const kestrin_data *source, ULO n, bool top);

bool copy_mixed(kestrin_data *dest, const kestrin_data *source, ULO n, ULO size)
{
    const ULO old = dest->indices_numb;
    if (dest->array.mix != nullptr && n < old) free_members(dest->array.mix, n, old);
    const ULO kept = dest->array.mix == nullptr ? 0 : old;
    if (!grow_places(&dest->array.mix, size, fatal_site::COPY_MIXED)) return false;
    for (ULO i = kept < n ? kept : n; i < size; i++) dest->array.mix[i] = fresh_variable;
    for (ULO i = 1; i < n && i < size; i++) {
        kestrin_data *to = &dest->array.mix[i];
        const kestrin_data *from = &source->array.mix[i];
        if (!copy_kst_data_(to, from, from->indices_numb, false)) return false;
    }
    return true;
}

bool copy_places(kestrin_data *dest, const kestrin_data *source, ULO n)
{
    const ULO size = array_capacity(n - 1);
    dest->arraytype = source->arraytype;
    bool done = true;
    if (is_class(source->arraytype, "IF"))
        done = copy_numbers(dest, source, n, size);
    else if (source->arraytype == 'S')
        done = copy_strings(dest, source, n, size);
    else if (source->arraytype == 'Z') {
        done = grow_tags(dest, size, fatal_site::COPY_Z_TAGS);
        if (done) memcpy(dest->aready_tags + 1, source->aready_tags + 1, n - 1);
    } else
        done = copy_mixed(dest, source, n, size);
    if (!done) return false;
    // Nothing of an earlier, longer array stays behind the last copied member.
    if (dest->arraytype != 0) memset(dest->aready_tags + n, 0, size - n);
    dest->indices_numb = size;
    return true;
}

// An alias and its variable share their buffers: nothing to copy, and nothing may be freed. Only a
// shorter count acts.
bool shares_buffers(const kestrin_data *dest, const kestrin_data *source)
{
    return (dest->svalue != nullptr && dest->svalue == source->svalue) ||
           (dest->array.mix != nullptr && dest->array.mix == source->array.mix) ||
           (dest->aready_tags != nullptr && dest->aready_tags == source->aready_tags);
}

void shorten(kestrin_data *d, ULO n)
{
    if (d->arraytype == 'S')
        free_strings(d->array.svalue, n, d->indices_numb);
    else if (d->arraytype == 0) {
        free_members(d->array.mix, n, d->indices_numb);
        for (ULO i = n; i < d->indices_numb; i++) d->array.mix[i] = fresh_variable;
    }
    if (d->aready_tags != nullptr) memset(d->aready_tags + n, 0, d->indices_numb - n);
}

bool copy_kst_data_(kestrin_data *dest, const kestrin_data *source, ULO n, bool top)
{
    check_stack(fatal_site::STACK_COPY);
    if (dest == source) return true;
    if (n == 0 || n > source->indices_numb) n = source->indices_numb;
    if (shares_buffers(dest, source)) {
        if (!source->single && n < dest->indices_numb) shorten(dest, n);
        dest->single = source->single;
        dest->type = source->type;
        dest->value = source->value;
        return true;
    }
    if (dest->arraytype != source->arraytype || source->single) {
        if (source->single && source->type == 'S') // keeps the buffer of a string for the next
            free_array_of(dest);
        else
            free_kst_data(dest);
    }
    copy_single(dest, source);
    dest->single = source->single;
    if (source->single) return true;
    if (copy_places(dest, source, n)) return true;
    if (!top && dest->indices_numb < 2) free_kst_data(dest);
    return false;
}

} // namespace

void free_array_of(kestrin_data *d)
{
    if (d->array.mix != nullptr || d->aready_tags != nullptr) free_array(d);
    d->single = 1;
    d->type = 0;
    d->arraytype = 0;
    d->indices_numb = 1;
    d->aready_tags = nullptr;
    d->array.mix = nullptr;
}

void copy_kst_data(kestrin_data *dest, const kestrin_data *source, ULO indices_numb)
{
    copy_kst_data_(dest, source, indices_numb, true);
}

void free_kst_data(kestrin_data *ret_dat)
{
    check_stack(fatal_site::STACK_FREE);
    free_string(&ret_dat->svalue);
    free_array_of(ret_dat);
}
