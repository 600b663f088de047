// ARSETQ, INDEX, ALINDEX, INDICES: members of arrays. Words of a node: slot number of the array,
// index operand, value operand.
//
// The typed handlers store into and read from a run of machine values. A variable can hold another
// class of array than was proved (it came through a function, or from foreign bytecode), so each
// looks at the class first and takes the generic road where it differs.

#include <algorithm>

#include "kestrin/strings.h"
#include "vm/handler.h"
#include "vm/moves.h"
#include "vm/places.h"
#include "vm/text.h"

FATAL_SITE(ARSETQ, "kestrin", "func__arsetq", 15)
FATAL_SITE(ARSETQ_I_ARRAY, "kestrin", "func__arsetq_i", 16)
FATAL_SITE(ARSETQ_I_TAGS, "kestrin", "func__arsetq_i", 17)
FATAL_SITE(ARSETQ_F_ARRAY, "kestrin", "func__arsetq_f", 18)
FATAL_SITE(ARSETQ_F_TAGS, "kestrin", "func__arsetq_f", 19)
FATAL_SITE(ARSETQ_S_ARRAY, "kestrin", "func__arsetq_s", 20)
FATAL_SITE(ARSETQ_S_TAGS, "kestrin", "func__arsetq_s", 21)
FATAL_SITE(ARSETQ_Z_TAGS, "kestrin", "func__arsetq_z", 22)

namespace {

void raise_at(rt_text text, const ULO *dat_ptr) { raise_error(text, dat_ptr, dat_ptr[0] + 1); }

// -- Storing -----------------------------------------------------------------------------------

// Into a place of the array. `taken`: out of a result record that nobody reads any more.
void put_text(CHR **place, kestrin_data *source, bool taken)
{
    if (taken)
        std::swap(*place, source->svalue);
    else
        equ(place, source->svalue);
}

// Member 0 is the record's own value.
void store_first(const ULO *dat_ptr, kestrin_data *array, kestrin_data *source, bool taken)
{
    if (!source->single) return raise_at(rt_text::SETVAL_ZERO_MEMBER, dat_ptr);
    array->type = source->type;
    array->value = source->value;
    if (source->type == 'S')
        put_text(&array->svalue, source, taken);
    else if (array->svalue != source->svalue)
        free_string(&array->svalue);
}

bool grow_mixed(kestrin_data *array, ULO index)
{
    const ULO old = owned_places(array), own = places_to_own(index);
    if (!grow_places(&array->array.mix, old, own, site::ARSETQ)) return false;
    for (ULO i = old; i < own; i++) array->array.mix[i] = fresh_variable;
    array->indices_numb = array_capacity(index);
    set_owned_places(array, own);
    array->single = 0;
    return true;
}

// Sees to it that the place has memory, of this array alone.
bool make_member(kestrin_data *array, ULO index)
{
    return own_places(array) && (index < owned_places(array) || grow_mixed(array, index));
}

// The array stored into itself: its places must not move under the copy.
[[gnu::noinline]] void store_itself(kestrin_data *array, ULO index, const kestrin_data *source)
{
    kestrin_data copy = owning_slot;
    copy_kst_data(&copy, source, 0);
    if (make_member(array, index)) take_value(&array->array.mix[index], &copy);
    release(&copy);
}

template <bool used> void store_mixed(const ULO *dat_ptr, SLO index, kestrin_data *source)
{
    kestrin_data *array = variable(dat_ptr[0]);
    const bool taken = !used && source->disable_ptr;
    if (index == 0) return store_first(dat_ptr, array, source, taken);
    if (index < 0) return raise_at(rt_text::SETVAL_NEGATIVE, dat_ptr);
    if (array->arraytype != 0) return raise_at(rt_text::SETVAL_TYPE, dat_ptr);
    if (!taken && !source->single && source->array.mix == array->array.mix)
        return store_itself(array, ULO(index), source);
    if (!make_member(array, ULO(index))) return;
    kestrin_data *member = &array->array.mix[index];
    if (taken)
        take_value(member, source);
    else if (!set_number(member, source))
        copy_kst_data(member, source, 0);
}

constexpr fatal_site site_of_tags(UCH letter)
{
    switch (letter) {
    case 'I': return site::ARSETQ_I_TAGS;
    case 'F': return site::ARSETQ_F_TAGS;
    case 'S': return site::ARSETQ_S_TAGS;
    default: return site::ARSETQ_Z_TAGS;
    }
}

template <UCH letter> bool grow_members(kestrin_data *array, ULO own)
{
    const ULO old = owned_places(array);
    if constexpr (letter == 'S') {
        if (!grow_places(&array->array.svalue, old, own, site::ARSETQ_S_ARRAY)) return false;
        for (ULO i = old; i < own; i++) array->array.svalue[i] = nullptr;
    } else if constexpr (letter != 'Z') {
        const fatal_site &site = letter == 'I' ? site::ARSETQ_I_ARRAY : site::ARSETQ_F_ARRAY;
        return grow_places(&array->array.ival, old, own, site);
    }
    return true;
}

template <UCH letter> bool grow_typed(kestrin_data *array, ULO index)
{
    const ULO own = places_to_own(index),
              size = std::max(array_capacity(index), array->indices_numb);
    if (!grow_members<letter>(array, own)) return false;
    array->arraytype = letter;
    if (!grow_tags(array, size, site_of_tags(letter))) return false;
    array->single = 0;
    array->indices_numb = size;
    if (letter != 'Z') set_owned_places(array, own);
    return true;
}

// True if the variable holds an array of this class, or none yet.
bool fits(const kestrin_data *array, UCH letter)
{
    return array->arraytype == letter || (array->arraytype == 0 && array->array.mix == nullptr);
}

// Sees to it that a place has memory. False if there is none to be had.
template <UCH letter> [[gnu::noinline]] bool make_place(kestrin_data *array, ULO place)
{
    if (place < array->indices_numb && (letter == 'Z' || place < owned_places(array))) return true;
    return grow_typed<letter>(array, place);
}

// What all places of a large array have, and those that hold a member.
bool has_place(const kestrin_data *array, ULO place)
{
    const ULO places = array->indices_numb;
    return place < places && (places != PLACES_STEP || array->aready_tags[place] != 0);
}

template <UCH letter, bool used>
void store_typed(const ULO *dat_ptr, SLO index, kestrin_data *source)
{
    kestrin_data *array = variable(dat_ptr[0]);
    if (index <= 0 || !source->single || source->type != letter || !fits(array, letter))
        return store_mixed<used>(dat_ptr, index, source);
    const ULO place = ULO(index);
    if (!has_place(array, place) && !make_place<letter>(array, place)) [[unlikely]]
        return;
    if constexpr (letter == 'S')
        put_text(&array->array.svalue[place], source, !used && source->disable_ptr);
    else if constexpr (letter != 'Z')
        array->array.ival[place] = source->value.ival;
    array->aready_tags[place] = letter;
}

// Letter 0: for an array of any class.
template <UCH letter, bool used = true> void arsetq(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    const SLO index = fetch<SLO>(dat_ptr + 1, ret_dat);
    lend_again(ret_dat); // a variable may have answered by an alias
    // The index is not the value.
    if constexpr (letter != 0) ret_dat->type = 0;
    eval(dat_ptr + 2, ret_dat);
    if (!rt_ctrl->rt_noterror) [[unlikely]]
        return;
    if constexpr (letter == 0)
        store_mixed<used>(dat_ptr, index, ret_dat);
    else
        store_typed<letter, used>(dat_ptr, index, ret_dat);
}

// A variable, copied from where it stands. Nobody reads the record.
void arsetq_variable(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    const ULO *node = node_at(dat_ptr + 2);
    if (node[1] == dat_ptr[0]) return arsetq<0>(dat_ptr, ret_dat);
    const SLO index = fetch<SLO>(dat_ptr + 1, ret_dat);
    if (!rt_ctrl->rt_noterror) return;
    if (variable(node[1])->type == 0) return raise_unset_variable(node);
    store_mixed<true>(dat_ptr, index, variable(node[1]));
}

// -- Reading -----------------------------------------------------------------------------------

// The value of a member within the array, copied or lent to a borrowing slot; of type 0 if it is
// not set.
template <bool lent>
[[gnu::always_inline]] inline void get_member(kestrin_data *to, const kestrin_data *array,
                                              ULO place)
{
    if (place != 0 && array->arraytype == 0) {
        if (place >= owned_places(array))
            to->type = 0;
        else if (lent)
            *to = array->array.mix[place];
        else
            copy_kst_data(to, &array->array.mix[place], 0);
        return;
    }
    to->single = 1;
    to->type = place == 0 ? array->type : array->aready_tags[place];
    if (to->type == 'S') {
        CHR *const text = place == 0 ? array->svalue : array->array.svalue[place];
        if (lent)
            to->svalue = text;
        else
            equ(&to->svalue, text);
    } else if (holds_number(to)) {
        to->value.ival = place == 0 ? array->value.ival : array->array.ival[place];
    }
}

// The whole road of an index, with its errors.
inline void load(const ULO *dat_ptr, kestrin_data *ret_dat, SLO index)
{
    const kestrin_data *array = variable(dat_ptr[0]);
    if (index < 0) return raise_at(rt_text::GETVAL_NEGATIVE, dat_ptr);
    if (ULO(index) >= array->indices_numb) return raise_at(rt_text::GETVAL_YET, dat_ptr);
    get_member<false>(ret_dat, array, ULO(index));
    if (ret_dat->type == 0) raise_at(rt_text::GETVAL_BEFORE_USE, dat_ptr);
}

void read_member(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    ret_dat->disable_ptr = 1;
    const SLO index = fetch<SLO>(dat_ptr + 1, ret_dat);
    if (rt_ctrl->rt_noterror) load(dat_ptr, ret_dat, index);
}

bool all_set(const kestrin_data *array, ULO n)
{
    if (array->arraytype == 0 && n > 1 && n > owned_places(array)) return false;
    for (ULO i = 1; i < n; i++) {
        const UCH type = array->arraytype != 0 ? array->aready_tags[i] : array->array.mix[i].type;
        if (type == 0) return false;
    }
    return array->type != 0;
}

// The array of the first n members; an alias of the whole in a borrowing slot.
void take_members(const ULO *dat_ptr, kestrin_data *ret_dat, SLO n)
{
    if (!rt_ctrl->rt_noterror) return;
    const kestrin_data *array = variable(dat_ptr[0]);
    if (n < 1) return raise_at(rt_text::GETVALS_INDICES, dat_ptr);
    if (ULO(n) > array->indices_numb) return raise_at(rt_text::GETVALS_YET, dat_ptr);
    if (ret_dat->disable_ptr == 1)
        copy_kst_data(ret_dat, array, ULO(n));
    else
        *ret_dat = *array;
    if (!all_set(array, ULO(n))) raise_at(rt_text::GETVALS_BEFORE_USE, dat_ptr);
}

} // namespace

bool lend_member(const kestrin_data *array, SLO index, kestrin_data *slot)
{
    if (index < 0 || ULO(index) >= array->indices_numb) return false;
    get_member<true>(slot, array, ULO(index));
    return slot->type != 0;
}

bool plain_index(const ULO *node, SLO *index)
{
    if (!rt_ctrl->rt_noterror) return false;
    const ULO *at = node_at(node + 2);
    if (is_node(at, func__dummy_i)) {
        *index = constant_of<SLO>(at);
        return true;
    }
    if (is_node(at, func__dummy_f)) return false;
    const kestrin_data *v = variable(at[1]);
    *index = v->value.ival;
    return v->type == 'I';
}

const kestrin_data *mixed_member(const ULO *node)
{
    const kestrin_data *array = variable(node[1]);
    SLO index;
    if (!plain_index(node, &index) || index <= 0 || array->arraytype != 0 ||
        ULO(index) >= owned_places(array))
        return nullptr;
    const kestrin_data *member = &array->array.mix[index];
    return member->type != 0 ? member : nullptr;
}

CHR **member_text(kestrin_data *array, SLO index, text_shape shape)
{
    const ULO place = ULO(index);
    if (place >= array->indices_numb) return nullptr;
    if (place == 0) return array->type == 'S' ? &array->svalue : nullptr;
    if (array->arraytype == 'S')
        return array->aready_tags[place] != 0 ? &array->array.svalue[place] : nullptr;
    if (array->arraytype != 0 || place >= owned_places(array)) return nullptr;
    kestrin_data *member = &array->array.mix[place];
    const bool is_text = member->type == 'S' && (member->single || shape == ANY_TEXT);
    return is_text ? &member->svalue : nullptr;
}

HANDLER(arsetq) { arsetq<0>(dat_ptr, ret_dat); }

HANDLER(arsetq_i) { arsetq<'I'>(dat_ptr, ret_dat); }
HANDLER(arsetq_f) { arsetq<'F'>(dat_ptr, ret_dat); }
HANDLER(arsetq_s) { arsetq<'S'>(dat_ptr, ret_dat); }
HANDLER(arsetq_z) { arsetq<'Z'>(dat_ptr, ret_dat); }

TYPED_HANDLERS(index, read_member)

// In the place of an argument: a member is lent as a plain variable is.
HANDLER(index_lent)
{
    const SLO index = fetch<SLO>(dat_ptr + 1, ret_dat);
    clear(ret_dat);
    ret_dat->disable_ptr = 0;
    if (rt_ctrl->rt_noterror && !lend_member(variable(dat_ptr[0]), index, ret_dat)) {
        *ret_dat = borrowing_slot;
        load(dat_ptr, ret_dat, index); // raises what is wrong
    }
}

fcall lending_form(const ULO *node)
{
    const bool is_index =
        is_node(node, func__index, func__index_i, func__index_f, func__index_s, func__index_z);
    return is_index ? func__index_lent : nullptr;
}

HANDLER(alindex)
{
    SLO n = 0;
    ret_ival(dat_ptr + 1, &n);
    take_members(dat_ptr, ret_dat, n);
}

HANDLER(alindex_j) { func__alindex(dat_ptr, ret_dat); }

// The capacity of the array, which is what the language calls its number of indices. The array
// itself is copied only if it is not a plain variable's.
HANDLER(indices)
{
    ret_dat->disable_ptr = 1;
    const ULO *node = node_at(dat_ptr);
    const kestrin_data *array = ret_dat;
    const bool plain = is_variable_read(node) && rt_ctrl->rt_noterror;
    if (plain) array = variable(node[1]);
    if (!plain || array->type == 0) call(node, ret_dat);
    if (!rt_ctrl->rt_noterror) return;
    answer<SLO>(ret_dat, array->single ? 1 : static_cast<SLO>(array->indices_numb));
}

fcall taking_arsetq(const ULO *node)
{
    if (is_node(node, func__arsetq) && is_variable_read(node_at(node + 3))) return arsetq_variable;
    for (const auto &[form, arsetq] : array_forms().subspan(2))
        if (is_node(node, arsetq)) return form;
    return nullptr;
}

std::span<const handler_form> array_forms()
{
    static constexpr handler_form forms[] = {
        {func__index_lent, func__index},      {arsetq_variable, func__arsetq},
        {arsetq<0, false>, func__arsetq},     {arsetq<'I', false>, func__arsetq_i},
        {arsetq<'F', false>, func__arsetq_f}, {arsetq<'S', false>, func__arsetq_s}};
    return forms;
}
