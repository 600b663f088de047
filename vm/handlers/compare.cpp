// The six comparisons. The first operand's type decides and the second is cast to it; the typed
// handlers are for a pair of one proved type.

#include <utility>

#include "vm/handler.h"
#include "vm/text.h"

namespace {

// What a comparison is for each type: numbers, the sign of the order of two strings, equality of
// two strings, and two nils. A first nil against another type is `nil_other`.
struct equal {
    template <class T> static bool numbers(T a, T b) { return a == b; }
    static bool texts(const CHR *a, const CHR *b) { return cmp(a, b); }
    static constexpr bool nils = true, nil_other = false;
};
struct not_equal {
    template <class T> static bool numbers(T a, T b) { return a != b; }
    static bool texts(const CHR *a, const CHR *b) { return !cmp(a, b); }
    static constexpr bool nils = false, nil_other = true;
};
struct less {
    template <class T> static bool numbers(T a, T b) { return a < b; }
    static bool texts(const CHR *a, const CHR *b) { return cmp_s(a, b) < 0; }
    static constexpr bool nils = false, nil_other = false;
};
struct greater {
    template <class T> static bool numbers(T a, T b) { return a > b; }
    static bool texts(const CHR *a, const CHR *b) { return cmp_s(a, b) > 0; }
    static constexpr bool nils = false, nil_other = false;
};
struct less_or_equal {
    template <class T> static bool numbers(T a, T b) { return a <= b; }
    static bool texts(const CHR *a, const CHR *b) { return cmp_s(a, b) <= 0; }
    static constexpr bool nils = true, nil_other = false;
};
struct greater_or_equal {
    template <class T> static bool numbers(T a, T b) { return a >= b; }
    static bool texts(const CHR *a, const CHR *b) { return cmp_s(a, b) >= 0; }
    static constexpr bool nils = true, nil_other = false;
};

template <class relation> struct comparison {
    template <class T> static void with_number(T first, const ULO *word, kestrin_data *ret_dat)
    {
        const T second = fetch<CAST, T>(word, ret_dat);
        if (rt_ctrl->rt_noterror) answer<SLO>(ret_dat, relation::numbers(first, second));
    }

    static void with_text(const CHR *first, const ULO *word, kestrin_data *ret_dat)
    {
        const held_operand<const CHR *, CAST> second(word, word + 1, ret_dat, true);
        if (!rt_ctrl->rt_noterror) return;
        answer<SLO>(ret_dat, relation::texts(first, second.get(ret_dat)));
    }

    static void with_nil(const ULO *word, kestrin_data *ret_dat)
    {
        eval(word, ret_dat);
        if (!rt_ctrl->rt_noterror) return;
        answer<SLO>(ret_dat, ret_dat->type == 'Z' ? relation::nils : relation::nil_other);
    }

    // The text that the first operand left in the record, kept while the second takes its place.
    static void with_own_text(const ULO *word, kestrin_data *ret_dat)
    {
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
        default: return;
        }
    }

    static void generic(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        ret_dat->disable_ptr = 1;
        const ULO *node = node_at(dat_ptr);
        // A plain variable is compared where it stands, unless the second operand could assign it.
        if (is_node(node, func__getval) && is_quiet(node_at(dat_ptr + 1))) {
            const kestrin_data *v = variable(node[1]);
            if (!rt_ctrl->rt_noterror) return;
            if (v->type != 0) return by_type(v, dat_ptr + 1, ret_dat);
        }
        call(node, ret_dat);
        if (rt_ctrl->rt_noterror) by_type(ret_dat, dat_ptr + 1, ret_dat);
    }

    // The comparison for a first operand that is likely a T; another type takes the generic way.
    template <class T, leaf_kind first = ANY, leaf_kind second = ANY>
    static void numbers(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        ret_dat->disable_ptr = 1;
        T value = 0;
        if (!read_in_place<T, first>(node_at(dat_ptr), &value)) {
            if constexpr (first == VARIABLE) return generic(dat_ptr, ret_dat);
            eval(dat_ptr, ret_dat);
            if (!rt_ctrl->rt_noterror) return;
            if (ret_dat->type != kind<T>::letter) return by_type(ret_dat, dat_ptr + 1, ret_dat);
            value = kind<T>::in(ret_dat);
        }
        const T other = fetch<CAST, T, second>(dat_ptr + 1, ret_dat);
        if (rt_ctrl->rt_noterror) answer<SLO>(ret_dat, relation::numbers(value, other));
    }

    template <class T> static constexpr variant_row variants(fcall general)
    {
        return vary<2>(
            general, 0, kind<T>::letter, kind<T>::letter,
            []<leaf_kind first, leaf_kind second>() { return &numbers<T, first, second>; });
    }

    static SLO texts_of(const CHR *a, const CHR *b) { return relation::texts(a, b); }
    static void texts(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        text<texts_of>::template run<PROVED>(dat_ptr, ret_dat);
    }

    static void nils(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        ret_dat->disable_ptr = 1;
        eval(dat_ptr, ret_dat);
        if (rt_ctrl->rt_noterror) by_type(ret_dat, dat_ptr + 1, ret_dat);
    }
};

} // namespace

#define COMPARISON(name, relation)                                                                 \
    HANDLER(name) { comparison<relation>::generic(dat_ptr, ret_dat); }                             \
    HANDLER(name##_i) { comparison<relation>::numbers<SLO>(dat_ptr, ret_dat); }                    \
    HANDLER(name##_f) { comparison<relation>::numbers<DFL>(dat_ptr, ret_dat); }                    \
    HANDLER(name##_s) { comparison<relation>::texts(dat_ptr, ret_dat); }                           \
    HANDLER(name##_z) { comparison<relation>::nils(dat_ptr, ret_dat); }

// The rows of the handlers that compare numbers.
#define COMPARISON_VARIANTS(name, relation)                                                        \
    comparison<relation>::variants<SLO>(func__##name),                                             \
        comparison<relation>::variants<SLO>(func__##name##_i),                                     \
        comparison<relation>::variants<DFL>(func__##name##_f),

#define COMPARISONS(X)                                                                             \
    X(equal, equal)                                                                                \
    X(notequal, not_equal)                                                                         \
    X(less, less)                                                                                  \
    X(greater, greater)                                                                            \
    X(lessorequal, less_or_equal)                                                                  \
    X(greaterorequal, greater_or_equal)

COMPARISONS(COMPARISON)

namespace {
constexpr variant_row rows[] = {COMPARISONS(COMPARISON_VARIANTS)};
} // namespace

const std::span<const variant_row> compare_variants = rows;
