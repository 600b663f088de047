// (setq s (cat s x)) and (arsetq a i (cat (index a i) x)) where nobody reads the value of the
// whole: x goes behind the text where that stands. Without it the text would be copied for every
// piece. Words: those of the SETQ or ARSETQ, whose value operand is the CAT.

#include "kestrin/strings.h"
#include "vm/handler.h"
#include "vm/moves.h"
#include "vm/places.h"
#include "vm/text.h"

HANDLER(setq);
HANDLER(setq_s);
HANDLER(alsetq);
HANDLER(alsetq_s);
HANDLER(arsetq);
HANDLER(arsetq_s);
HANDLER(cat);
HANDLER(cat_j);

namespace {

// The operand words of a CAT.
const ULO *joined_words(const ULO *value_word) { return node_at(value_word) + 1; }

// Evaluates the second operand of the CAT and puts it behind the text that `find` gives the place
// of then; the operand does not assign the variable.
template <class F> void append(F find, const ULO *cat_words, kestrin_data *ret_dat)
{
    ret_dat->disable_ptr = 1;
    const held_operand<const CHR *> more(cat_words + 1, cat_words + 2, ret_dat, true);
    if (!rt_ctrl->rt_noterror) return;
    CHR **const place = find();
    if (place != nullptr) cat(place, more.get(ret_dat));
}

void append_to_variable(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    kestrin_data *target = variable(dat_ptr[0]);
    if (!rt_ctrl->rt_noterror) return;
    if (target->indices_numb > 1 || target->type != 'S') return func__setq(dat_ptr, ret_dat);
    append([target] { return &target->svalue; }, joined_words(dat_ptr + 1), ret_dat);
}

// A store of any type refuses an array of one class. The operand may copy the array, which shares
// its places from then on.
template <fcall generic> void append_to_member(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    const ULO *words = joined_words(dat_ptr + 2);
    kestrin_data *array = variable(dat_ptr[0]);
    SLO index;
    const bool refused = generic == func__arsetq && array->arraytype != 0;
    if (refused || !plain_index(node_at(words), &index) ||
        member_text(array, index, SINGLE_TEXT) == nullptr)
        return generic(dat_ptr, ret_dat);
    const auto find = [array, index] {
        return own_places(array) ? member_text(array, index, SINGLE_TEXT) : nullptr;
    };
    append(find, words, ret_dat);
}

bool is_same_leaf(const ULO *a, const ULO *b) { return a[0] == b[0] && a[1] == b[1]; }

// `node` is a SETQ of the variable in its word 1.
bool appends_to_variable(const ULO *node)
{
    const ULO *value = node_at(node + 2);
    if (!is_node(value, func__cat, func__cat_j)) return false;
    const ULO *first = node_at(value + 1);
    return is_variable_read(first) && first[1] == node[1];
}

// `node` is an ARSETQ.
bool appends_to_member(const ULO *node)
{
    const ULO *index = node_at(node + 2), *value = node_at(node + 3);
    if (!is_node(value, func__cat, func__cat_j)) return false;
    const ULO *first = node_at(value + 1);
    return is_plain_member(first) && first[1] == node[1] && is_same_leaf(index, node_at(first + 2));
}

} // namespace

fcall appending_form(const ULO *node)
{
    if (is_node(node, func__setq, func__setq_s, func__alsetq, func__alsetq_s))
        return appends_to_variable(node) ? append_to_variable : nullptr;
    for (const auto &[form, arsetq] : appending_forms().subspan(1))
        if (is_node(node, arsetq)) return appends_to_member(node) ? form : nullptr;
    return nullptr;
}

std::span<const handler_form> appending_forms()
{
    static constexpr handler_form forms[] = {{append_to_variable, func__setq},
                                             {append_to_member<func__arsetq>, func__arsetq},
                                             {append_to_member<func__arsetq_s>, func__arsetq_s}};
    return forms;
}
