// The six comparisons. The first operand's type decides and the second is cast to it; the typed
// handlers are for a pair of one proved type.

#include <utility>

#include "strings/block.h"
#include "vm/forms.h"
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

// What a comparison is for each type: numbers, the sign of the order of two strings, equality of
// two strings, and two nils. A first nil against another type is `nil_other`.
struct equal {
    template <class T> static bool numbers(T a, T b) { return a == b; }
    static bool texts(const CHR *a, const CHR *b) { return same(a, b); }
    static constexpr bool nils = true, nil_other = false;
};
struct not_equal {
    template <class T> static bool numbers(T a, T b) { return a != b; }
    static bool texts(const CHR *a, const CHR *b) { return !same(a, b); }
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
        eval_value(word, ret_dat);
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
        default: raise_error(rt_text::RETURN_IVAL, word - 1);
        }
    }

    static void generic(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        ret_dat->disable_ptr = 1;
        const ULO *node = node_at(dat_ptr);
        // A plain variable or the text of a member is compared where it stands, unless the second
        // operand could assign it.
        if (has_no_effect(node_at(dat_ptr + 1))) {
            if (is_node(node, func__getval)) {
                const kestrin_data *v = variable(node[1]);
                if (!rt_ctrl->rt_noterror) return;
                if (v->type != 0) return by_type(v, dat_ptr + 1, ret_dat);
            } else if (is_plain_member(node)) {
                CHR *const *text = member_text(node);
                if (text != nullptr) return with_text(*text, dat_ptr + 1, ret_dat);
            }
        }
        call_for_value(node, ret_dat);
        if (rt_ctrl->rt_noterror) by_type(ret_dat, dat_ptr + 1, ret_dat);
    }

    static SLO texts_of(const CHR *a, const CHR *b) { return relation::texts(a, b); }
    static void texts(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        text<texts_of>::template run<PROVED>(dat_ptr, ret_dat);
    }

    static void nils(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        ret_dat->disable_ptr = 1;
        eval_value(dat_ptr, ret_dat);
        if (rt_ctrl->rt_noterror) by_type(ret_dat, dat_ptr + 1, ret_dat);
    }
};

// The comparison for a first operand that is likely a T; another type takes the generic way.
template <class relation, class T> struct of_numbers {
    using result = SLO;
    static constexpr wanted wants[] = {{in_record<T>::letter, true}, {in_record<T>::letter}};
    static constexpr bool truth = true, members = true;

    static void generic(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        comparison<relation>::generic(dat_ptr, ret_dat);
    }

    template <operand_kind a, operand_kind b>
    static bool compute_in_place(const ULO *dat_ptr, SLO *value)
    {
        T first, second;
        if (!read_in_place<T, a>(dat_ptr, &first) || !read_in_place<T, b>(dat_ptr + 1, &second))
            return false;
        *value = relation::numbers(first, second);
        return true;
    }

    template <operand_kind a, operand_kind b>
    static SLO compute(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        const T first = fetch<CAST, T, a>(dat_ptr, ret_dat);
        return relation::numbers(first, fetch<CAST, T, b>(dat_ptr + 1, ret_dat));
    }

    // A first operand in place is a T or refuses.
    template <operand_kind a, operand_kind b>
    requires(is_in_place(a) && b == EXPRESSION) static bool with_first(const ULO *dat_ptr,
                                                                       kestrin_data *ret_dat,
                                                                       SLO *value)
    {
        T first;
        if (!read_in_place<T, a>(dat_ptr, &first)) [[unlikely]]
            return false;
        *value = relation::numbers(first, fetch<CAST, T, b>(dat_ptr + 1, ret_dat));
        return true;
    }

    // For a first operand whose type is open until it has been evaluated.
    template <operand_kind b = ANY> static void evaluated(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        ret_dat->disable_ptr = 1;
        eval_value(dat_ptr, ret_dat);
        if (!rt_ctrl->rt_noterror) return;
        if (ret_dat->type != in_record<T>::letter) [[unlikely]]
            return comparison<relation>::by_type(ret_dat, dat_ptr + 1, ret_dat);
        const T first = in_record<T>::in(ret_dat), second = fetch<CAST, T, b>(dat_ptr + 1, ret_dat);
        if (rt_ctrl->rt_noterror) answer<SLO>(ret_dat, relation::numbers(first, second));
    }

    template <operand_kind a, operand_kind b> static constexpr variant make()
    {
        constexpr bool open = a == EXPRESSION || a == VARIABLE || a == MEMBER;
        if constexpr (open && b == HANDED)
            return {}; // it is cast to what the first turns out to be
        else if constexpr (a == EXPRESSION)
            return {.record = &evaluated<b>};
        else
            return forms_of<of_numbers, a, b>();
    }
};

// The comparison of two texts that stand in place, or of one that is handed on with such a one.
template <class relation> struct of_texts {
    using result = SLO;
    static constexpr wanted wants[] = {{'S'}, {'S'}};
    static constexpr bool truth = true, members = true;

    static void generic(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        comparison<relation>::texts(dat_ptr, ret_dat);
    }

    template <operand_kind a, operand_kind b>
    static bool compute_in_place(const ULO *dat_ptr, SLO *value)
    {
        const CHR *first, *second;
        if (!read_in_place<const CHR *, a>(dat_ptr, &first) ||
            !read_in_place<const CHR *, b>(dat_ptr + 1, &second))
            return false;
        *value = relation::texts(first, second);
        return true;
    }

    template <operand_kind, operand_kind b>
    static SLO compute(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        const CHR *first = handed<const CHR *>(dat_ptr, ret_dat), *second;
        if (read_in_place<const CHR *, b>(dat_ptr + 1, &second)) [[likely]]
            return relation::texts(first, second);
        return with_other(first, dat_ptr + 1);
    }

    // A variable that holds no text; the first one may stand in the record.
    [[gnu::noinline]] static SLO with_other(const CHR *first, const ULO *word)
    {
        scratch second;
        ret_sval(word, &second.s);
        return relation::texts(first, second.s);
    }

    template <operand_kind a, operand_kind b> static constexpr variant make()
    {
        if constexpr (is_in_place(b) && (is_in_place(a) || a == HANDED))
            return forms_of<of_texts, a, b>();
        else if constexpr (a == HANDED || b == HANDED)
            return {};
        else
            return {.record = &generic};
    }
};

} // namespace

#define COMPARISON(name, relation)                                                                 \
    HANDLER(name) { comparison<relation>::generic(dat_ptr, ret_dat); }                             \
    HANDLER(name##_i) { of_numbers<relation, SLO>::evaluated(dat_ptr, ret_dat); }                  \
    HANDLER(name##_f) { of_numbers<relation, DFL>::evaluated(dat_ptr, ret_dat); }                  \
    HANDLER(name##_s) { comparison<relation>::texts(dat_ptr, ret_dat); }                           \
    HANDLER(name##_z) { comparison<relation>::nils(dat_ptr, ret_dat); }

#define COMPARISONS(X)                                                                             \
    X(equal, equal)                                                                                \
    X(notequal, not_equal)                                                                         \
    X(less, less)                                                                                  \
    X(greater, greater)                                                                            \
    X(lessorequal, less_or_equal)                                                                  \
    X(greaterorequal, greater_or_equal)

COMPARISONS(COMPARISON)

namespace {
#define ROWS(name, relation)                                                                       \
    forms<of_numbers<relation, SLO>>(func__##name, func__##name##_i),                              \
        forms<of_numbers<relation, DFL>>(func__##name##_f, func__##name##_f),                      \
        forms<of_texts<relation>>(func__##name##_s, func__##name##_s),
constexpr variant_row rows[] = {COMPARISONS(ROWS)};
} // namespace

const std::span<const variant_row> compare_variants = rows;
