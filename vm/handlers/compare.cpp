// The six comparisons. The first operand's type decides and the second is cast to it; the typed
// handlers are for a pair of one proved type.

#include <functional>
#include <utility>

#include "strings/block.h"
#include "vm/handler.h"
#include "vm/text.h"

namespace {

// cmp(), with short texts compared here: length and text of such a one are two words.
bool same(const CHR *a, const CHR *b)
{
    if (a == nullptr || b == nullptr) return a == b;
    const ULO size = load_word(a - LENGTH_WORD);
    if (size != load_word(b - LENGTH_WORD)) return false;
    return size < sizeof(ULO) ? load_word(a) == load_word(b) : cmp(a, b);
}

// What a comparison is for each type: numbers, two strings, two nils, and a first nil against
// another type. Strings are ordered by the sign that cmp_s() gives, two nils as two equal numbers.
template <class order> struct relation_by {
    static constexpr bool is_symmetric = order()(0, 1) == order()(1, 0); // == and !=
    template <class T> static bool numbers(T a, T b) { return order()(a, b); }
    static bool texts(const CHR *a, const CHR *b)
    {
        return is_symmetric ? order()(same(a, b), true) : order()(cmp_s(a, b), SCH(0));
    }
    static constexpr bool nils = order()(0, 0), nil_other = is_symmetric && !nils;
};

// A variable that holds an integer and a constant.
bool is_constant_test(const ULO *first, const ULO *second)
{
    return is_node(second, func__dummy_i) && is_node(first, func__getval) &&
           variable(first[1])->type == 'I';
}

template <class relation> struct comparison {
    template <class T> static void with_number(T first, const ULO *word, kestrin_data *ret_dat)
    {
        const T second = fetch<T>(word, ret_dat);
        if (rt_ctrl->rt_noterror) answer<SLO>(ret_dat, relation::numbers(first, second));
    }

    static void with_text(const CHR *first, const ULO *word, kestrin_data *ret_dat)
    {
        const held_operand<const CHR *> second(word, word + 1, ret_dat, true);
        if (!rt_ctrl->rt_noterror) return;
        answer<SLO>(ret_dat, relation::texts(first, second.get(ret_dat)));
    }

    static void with_nil(const ULO *word, kestrin_data *ret_dat)
    {
        eval_value(word, ret_dat);
        if (!rt_ctrl->rt_noterror) return;
        answer<SLO>(ret_dat, ret_dat->type == 'Z' ? relation::nils : relation::nil_other);
    }

    // The text that the first operand left in the record, kept where the second takes its place.
    static void with_own_text(const ULO *word, kestrin_data *ret_dat)
    {
        const CHR *second = text_in_place(node_at(word));
        if (second != nullptr)
            return answer<SLO>(ret_dat, relation::texts(ret_dat->svalue, second));
        scratch first;
        std::swap(first.s, ret_dat->svalue);
        with_text(first.s, word, ret_dat);
    }

    // By the run-time type of the first operand, a record that holds it.
    static void by_type(const kestrin_data *first, const ULO *word, kestrin_data *ret_dat)
    {
        switch (first->type) {
        case 'I': return with_number(first->value.ival, word, ret_dat);
        case 'F': return with_number(first->value.fval, word, ret_dat);
        case 'Z': return with_nil(word, ret_dat);
        case 'S':
            if (first != ret_dat) return with_text(first->svalue, word, ret_dat);
            return with_own_text(word, ret_dat);
        default: raise_error(rt_text::RETURN_IVAL, word - 1);
        }
    }

    static void generic(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        if (!rt_ctrl->rt_noterror) return;
        ret_dat->disable_ptr = 1;
        const ULO *node = node_at(dat_ptr), *other = node_at(dat_ptr + 1);
        if (is_constant_test(node, other)) // most tests of arguments
            return answer<SLO>(ret_dat,
                               relation::numbers(variable(node[1])->value.ival, SLO(other[1])));
        const CHR *first = text_in_place(node),
                  *second = first == nullptr ? nullptr : text_in_place(other);
        if (second != nullptr) return answer<SLO>(ret_dat, relation::texts(first, second));
        // A plain variable is compared where it stands, unless the second operand could assign it.
        if (is_variable_read(node) && variable(node[1])->type != 0 && has_no_effect(other))
            return by_type(variable(node[1]), dat_ptr + 1, ret_dat);
        evaluated(dat_ptr, ret_dat);
    }

    static void evaluated(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        eval_value(dat_ptr, ret_dat);
        if (rt_ctrl->rt_noterror) by_type(ret_dat, dat_ptr + 1, ret_dat);
    }

    // For a first operand that is proved a T.
    template <class T> static void numbers(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        ret_dat->disable_ptr = 1;
        T first;
        if (!read_single<T>(dat_ptr, &first)) return evaluated(dat_ptr, ret_dat);
        with_number(first, dat_ptr + 1, ret_dat);
    }
};

} // namespace

#define COMPARISON(name, order)                                                                    \
    HANDLER(name) { comparison<relation_by<order>>::generic(dat_ptr, ret_dat); }                   \
    HANDLER(name##_i) { comparison<relation_by<order>>::numbers<SLO>(dat_ptr, ret_dat); }          \
    HANDLER(name##_f) { comparison<relation_by<order>>::numbers<DFL>(dat_ptr, ret_dat); }          \
    HANDLER(name##_s) { comparison<relation_by<order>>::generic(dat_ptr, ret_dat); }               \
    HANDLER(name##_z) { comparison<relation_by<order>>::generic(dat_ptr, ret_dat); }

COMPARISON(equal, std::equal_to<>)
COMPARISON(notequal, std::not_equal_to<>)
COMPARISON(less, std::less<>)
COMPARISON(greater, std::greater<>)
COMPARISON(lessorequal, std::less_equal<>)
COMPARISON(greaterorequal, std::greater_equal<>)
