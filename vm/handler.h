// What handlers are made of: nodes, the evaluation of operands, the templates of the common shapes.
// This is the one home of the protocol; the files of handlers/ hold operations.
//
// A handler leaves its result in the record that it is lent. While an error is pending, constants
// and variable reads do nothing, so a handler evaluates its operands without a test between them
// and looks at rt_noterror once, before it stores or has an effect.
#pragma once

#include <cstring>
#include <span>
#include <tuple>
#include <type_traits>
#include <utility>

#include "kestrin/value.h"
#include "vm/errors.h"
#include "vm/image.h"
#include "vm/leaf.h"
#include "vm/machine.h"
#include "vm/stack.h"
#include "vm/variants.h"

SHARED_FATAL_SITE(STACK_EVAL)

#define HANDLER(name)                                                                              \
    void func__##name([[maybe_unused]] const ULO *dat_ptr, [[maybe_unused]] kestrin_data *ret_dat)

// -- Words of linked code ----------------------------------------------------------------------

inline const ULO *node_at(const ULO *operand_word)
{
    return reinterpret_cast<const ULO *>(*operand_word);
}
// Whether it has one of these handlers.
template <class... fcalls> bool is_node(const ULO *node, fcalls... handlers)
{
    return ((node[0] == reinterpret_cast<ULO>(handlers)) || ...);
}
inline const ULO *image_main_node(const ULO *image) { return node_at(image); }
inline ULO image_slots(const ULO *image) { return image[image::SLOTS]; }
inline ULO image_arguments(const ULO *image) { return image[image::ARGUMENTS]; }
inline ULO image_udfs(const ULO *image) { return image[image::UDFS]; }

inline kestrin_data *variable(ULO number) { return &rt_ctrl->rt_frame[number]; }

// -- Evaluation --------------------------------------------------------------------------------

// The handler that stands in a node; another thread may put native code there at this moment.
inline fcall handler_of(const ULO *node)
{
    return reinterpret_cast<fcall>(__atomic_load_n(node, __ATOMIC_RELAXED));
}

// Calls a node's handler.
inline void call(const ULO *node, kestrin_data *ret_dat)
{
    check_stack(site::STACK_EVAL);
    handler_of(node)(node + 1, ret_dat);
}
inline void eval(const ULO *operand_word, kestrin_data *ret_dat)
{
    call(node_at(operand_word), ret_dat);
}

// A recursion of calls ends that far from the end of the stack: room for what a body does on its
// own.
constexpr ULO ROOM_OF_A_BODY = ULO(64) << 10;
// Where it ends: raises the error of the call at `dat_ptr`, or ends the process.
[[gnu::cold]] void give_up(rt_control *rt, const ULO *dat_ptr);

// The number of an argument that has been evaluated, an integer or the bits of a float. Type 0: it
// has not.
struct given_number {
    SLO bits;
    UCH type;
};
// A call whose first arguments may be given, one for each that the image takes.
void call_with_numbers(const ULO *dat_ptr, kestrin_data *ret_dat, const given_number *given);

// Evaluates an operand whose value is wanted. A node may leave its record as it was, such as a
// PROGN of nothing: what stood there before is not its value, so the record is undefined until
// then.
inline void call_for_value(const ULO *node, kestrin_data *ret_dat)
{
    ret_dat->type = 0;
    call(node, ret_dat);
}
inline void eval_value(const ULO *operand_word, kestrin_data *ret_dat)
{
    call_for_value(node_at(operand_word), ret_dat);
}

// Before a record is lent a second time: what a variable read may have left in a borrowing slot is
// not ours to write over.
void forget_alias(kestrin_data *ret_dat);
inline void lend_again(kestrin_data *ret_dat)
{
    if (!ret_dat->disable_ptr) forget_alias(ret_dat);
}

// Frees the array of a record and makes it single and undefined; its string stays as a buffer.
void free_array_of(kestrin_data *d);

inline bool owns_nothing(const kestrin_data *d)
{
    return d->svalue == nullptr && d->array.mix == nullptr && d->aready_tags == nullptr;
}

inline bool holds_number(const kestrin_data *d) { return d->type == 'I' || d->type == 'F'; }

// A single number for a record that holds no more: nothing is freed or copied. False, with nothing
// done, for anything else.
inline bool set_number(kestrin_data *target, const kestrin_data *source)
{
    if (!source->single || !holds_number(source) || !owns_nothing(target)) return false;
    target->single = 1;
    target->type = source->type;
    target->value = source->value;
    return true;
}

// free_kst_data() where there is something to free. For records that are about to end.
inline void release(kestrin_data *d)
{
    if (!owns_nothing(d)) free_kst_data(d);
}
// What free_kst_data() does to a record that lives on.
inline void clear(kestrin_data *d)
{
    if (!owns_nothing(d)) free_kst_data(d);
    d->single = 1;
    d->type = 0;
}

// -- The machine types -------------------------------------------------------------------------

// Values by the language's table of casts, from a record that holds a value.
SLO to_ival(const kestrin_data *d);
DFL to_fval(const kestrin_data *d);
void store_text(CHR **targ, const kestrin_data *d);

// Where a machine type lives in a record, its leaves, and what it takes from a value of another
// type.
template <class T> struct in_record;

template <> struct in_record<SLO> {
    static constexpr UCH letter = 'I';
    static SLO &in(kestrin_data *d) { return d->value.ival; }
    static const SLO &in(const kestrin_data *d) { return d->value.ival; }
    static constexpr fcall constant = func__dummy_i;
    static constexpr fcall typed_read = func__getval_i;
    static constexpr rt_text undefined = rt_text::RETURN_IVAL;
    static SLO from(const kestrin_data *d) { return to_ival(d); }
};

template <> struct in_record<DFL> {
    static constexpr UCH letter = 'F';
    static DFL &in(kestrin_data *d) { return d->value.fval; }
    static const DFL &in(const kestrin_data *d) { return d->value.fval; }
    static constexpr fcall constant = func__dummy_f;
    static constexpr fcall typed_read = func__getval_f;
    static constexpr rt_text undefined = rt_text::RETURN_FVAL;
    static DFL from(const kestrin_data *d) { return to_fval(d); }
};

template <class T> T constant_of(const ULO *node)
{
    T value;
    memcpy(&value, node + 1, sizeof value);
    return value;
}

// The rare ways of a cast: a variable, or an operand that has been evaluated, of another type.
template <class T> [[gnu::noinline]] T cast_variable(const ULO *node)
{
    if (!rt_ctrl->rt_noterror) return 0;
    const kestrin_data *v = variable(node[1]);
    if (v->type != 0) return in_record<T>::from(v);
    raise_unset_variable(node);
    return 0;
}
template <class T> [[gnu::noinline]] T cast_result(const ULO *word, kestrin_data *ret_dat)
{
    if (!rt_ctrl->rt_noterror) return 0;
    if (ret_dat->type != 0) return in_record<T>::from(ret_dat);
    raise_error(in_record<T>::undefined, word);
    return 0;
}

// Any value, converted; of an operand whose kind is known, nothing is asked. `ret_dat` is an owning
// slot to evaluate in. A constant and a variable that hold the type already are read in place. A
// value of another type than was proved is rare (a FOR over a float, a BREAK in a function) and is
// cast like any other.
template <class T, operand_kind kind = ANY>
[[gnu::always_inline]] inline T fetch(const ULO *word, kestrin_data *ret_dat)
{
    const ULO *node = node_at(word);
    const auto is = [node](operand_kind known, fcall handler) {
        return kind == known || (kind == ANY && is_node(node, handler));
    };
    if (is(VARIABLE, func__getval) || is(VARIABLE, in_record<T>::typed_read)) {
        const kestrin_data *v = variable(node[1]);
        if (v->type == in_record<T>::letter) [[likely]]
            return in_record<T>::in(v);
        return cast_variable<T>(node);
    }
    if (is(CONSTANT, in_record<T>::constant)) return constant_of<T>(node);
    call_for_value(node, ret_dat);
    if (ret_dat->type == in_record<T>::letter) [[likely]]
        return in_record<T>::in(ret_dat);
    return cast_result<T>(word, ret_dat);
}

// Makes an owning slot answer a number. Array memory of an earlier value stays until it is freed.
template <class T> void answer(kestrin_data *ret_dat, T value)
{
    ret_dat->single = 1;
    ret_dat->type = in_record<T>::letter;
    in_record<T>::in(ret_dat) = value;
}

// The number of a constant, or of a single variable that is proved to be one, where it stands.
template <class T> [[gnu::always_inline]] inline bool read_single(const ULO *word, T *value)
{
    const ULO *node = node_at(word);
    if (is_node(node, in_record<T>::constant)) {
        *value = constant_of<T>(node);
        return true;
    }
    if (!is_node(node, in_record<T>::typed_read)) return false;
    const kestrin_data *v = variable(node[1]);
    *value = in_record<T>::in(v);
    return v->type == in_record<T>::letter && v->single;
}

// -- Numeric instructions ----------------------------------------------------------------------

// The signature of `op` says the rest: how many operands, how each is fetched, the result's letter.
// `fault` takes the same operands and gives the error to raise, or rt_text::NONE.
template <auto op, auto fault = nullptr> struct numeric;

template <class T>
concept is_number = std::is_same_v<T, SLO> || std::is_same_v<T, DFL>;

template <class R, class... A, R (*op)(A...), auto fault> struct numeric<op, fault> {
    static_assert((is_number<R> && ... && is_number<A>),
                  "an operation on numbers takes and gives SLO and DFL, no other types");
    static constexpr bool may_fault = !std::is_null_pointer_v<decltype(fault)>;
    template <class> static constexpr operand_kind unknown = ANY;

    // Braces fetch left to right.
    template <operand_kind... kinds, std::size_t... i>
    [[gnu::always_inline]] static std::tuple<A...>
    fetch_all(const ULO *dat_ptr, kestrin_data *ret_dat, std::index_sequence<i...>)
    {
        return std::tuple<A...>{fetch<A, kinds>(dat_ptr + i, ret_dat)...};
    }

    // False with an error pending; a fault raises one.
    static bool are_good(const std::tuple<A...> &args, const ULO *dat_ptr)
    {
        if (!rt_ctrl->rt_noterror) [[unlikely]]
            return false;
        if constexpr (may_fault) {
            const rt_text found = std::apply(fault, args);
            if (found != rt_text::NONE) raise_error(found, dat_ptr);
            return found == rt_text::NONE;
        }
        return true;
    }

    // Answers, and leaves the number in `value` too. False, with neither done, with an error
    // pending.
    template <operand_kind... kinds>
    [[gnu::always_inline]] static bool work_out(const ULO *dat_ptr, kestrin_data *ret_dat, R *value)
    {
        ret_dat->disable_ptr = 1;
        const auto args = fetch_all<kinds...>(dat_ptr, ret_dat, std::index_sequence_for<A...>());
        if (!are_good(args, dat_ptr)) [[unlikely]]
            return false;
        *value = std::apply(op, args);
        answer<R>(ret_dat, *value);
        return true;
    }

    static void run(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        record<unknown<A>...>(dat_ptr, ret_dat);
    }
    // For operands of these kinds.
    template <operand_kind... kinds> static void record(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        R value;
        work_out<kinds...>(dat_ptr, ret_dat, &value);
    }
    // The same and the SETQ around it.
    template <operand_kind... kinds> static void assign(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        R value;
        if (!work_out<kinds...>(node_at(dat_ptr + 1) + 1, ret_dat, &value)) return;
        kestrin_data *target = variable(dat_ptr[0]);
        if (!owns_nothing(target)) [[unlikely]]
            return copy_kst_data(target, ret_dat, 0);
        answer(target, value);
    }
    template <operand_kind first, operand_kind second> static constexpr variant of_kinds()
    {
        return {&record<first, second>, &assign<first, second>};
    }

    // The number for operands that have been evaluated, without an error pending; `dat_ptr` is
    // where a fault is raised.
    static R direct(A... args, [[maybe_unused]] const ULO *dat_ptr)
    {
        if constexpr (may_fault)
            if (!are_good({args...}, dat_ptr)) return 0;
        return op(args...);
    }

    static constexpr CHR letters[] = {in_record<A>::letter..., 0};
    static constexpr variant_table variants =
        make_variants<numeric>(std::make_index_sequence<OPERAND_KINDS * OPERAND_KINDS>());
    static numeric_row row(fcall handler, fcall proved, const variant_table *variants_of_it)
    {
        return {handler,
                proved,
                reinterpret_cast<const void *>(&direct),
                letters,
                in_record<R>::letter,
                may_fault,
                variants_of_it};
    }
};

// The handlers of an instruction for operands of any types and of proved ones: it looks at them
// itself.
#define HANDLERS(name, ...)                                                                        \
    HANDLER(name) { __VA_ARGS__::run(dat_ptr, ret_dat); }                                          \
    HANDLER(name##_j) { __VA_ARGS__::run(dat_ptr, ret_dat); }
// The same where there is one for each type.
#define TYPED_HANDLERS(name, ...)                                                                  \
    HANDLER(name) { __VA_ARGS__(dat_ptr, ret_dat); }                                               \
    HANDLER(name##_i) { __VA_ARGS__(dat_ptr, ret_dat); }                                           \
    HANDLER(name##_f) { __VA_ARGS__(dat_ptr, ret_dat); }                                           \
    HANDLER(name##_s) { __VA_ARGS__(dat_ptr, ret_dat); }                                           \
    HANDLER(name##_z) { __VA_ARGS__(dat_ptr, ret_dat); }

// Its row, if it is a `numeric`.
#define NUMERIC_ROW(name, ...) __VA_ARGS__::row(func__##name, func__##name##_j, nullptr),
#define ARITHMETIC_ROW(name, ...)                                                                  \
    __VA_ARGS__::row(func__##name, func__##name##_j, &__VA_ARGS__::variants),
