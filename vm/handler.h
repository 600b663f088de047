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

#define HANDLER(name) void func__##name(const ULO *dat_ptr, kestrin_data *ret_dat)

// -- Words of linked code ----------------------------------------------------------------------

inline const ULO *node_at(const ULO *operand_word)
{
    return reinterpret_cast<const ULO *>(*operand_word);
}
inline bool is_node(const ULO *node, fcall handler)
{
    return node[0] == reinterpret_cast<ULO>(handler);
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

// A text is only read where it stands.
template <> struct in_record<const CHR *> {
    static constexpr UCH letter = 'S';
    static const CHR *in(const kestrin_data *d) { return d->svalue; }
    static constexpr fcall constant = func__dummy_s;
    static constexpr fcall typed_read = func__getval_s;
};

// How the operands of a slot are fetched: by a cast, or as values of a type that is proved.
enum operands { CAST, PROVED };

template <class T> T constant_of(const ULO *node)
{
    if constexpr (std::is_same_v<T, const CHR *>) return reinterpret_cast<const CHR *>(node + 2);
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

// Any value, converted. `ret_dat` is an owning slot to evaluate in. A constant and a variable that
// hold the type already are read in place; the kind of read that is likely is looked for first. A
// value of another type than was proved is rare (a FOR over a float, a BREAK in a function) and is
// cast alike.
template <operands how, class T>
[[gnu::always_inline]] inline T fetch_any(const ULO *word, kestrin_data *ret_dat)
{
    constexpr fcall likely = how == PROVED ? in_record<T>::typed_read : func__getval;
    constexpr fcall other = how == PROVED ? func__getval : in_record<T>::typed_read;
    const ULO *node = node_at(word);
    if (is_node(node, likely) || is_node(node, other)) {
        const kestrin_data *v = variable(node[1]);
        if (v->type == in_record<T>::letter) [[likely]]
            return in_record<T>::in(v);
        return cast_variable<T>(node);
    }
    if (is_node(node, in_record<T>::constant)) return constant_of<T>(node);
    call_for_value(node, ret_dat);
    if (ret_dat->type == in_record<T>::letter) [[likely]]
        return in_record<T>::in(ret_dat);
    return cast_result<T>(word, ret_dat);
}

// A member of an array of the type; the index is a plain variable.
template <class T> [[gnu::always_inline]] inline bool member_in_place(const ULO *node, T *value)
{
    const kestrin_data *at = variable(node_at(node + 2)[1]), *array = variable(node[1]);
    const ULO index = ULO(at->value.ival);
    if (at->type != 'I' || index - 1 >= array->indices_numb - 1 ||
        array->arraytype != in_record<T>::letter || array->aready_tags[index] == 0) [[unlikely]]
        return false;
    *value = reinterpret_cast<const T *>(array->array.ival)[index];
    return true;
}

// The number of a constant, or of a plain variable that holds one of the type, or of a member.
// False: look at it in another way; nothing has been done.
template <class T, operand_kind kind>
[[gnu::always_inline]] inline bool read_in_place(const ULO *word, T *value)
{
    const ULO *node = node_at(word);
    if constexpr (kind == CONSTANT) {
        *value = constant_of<T>(node);
        return true;
    } else if constexpr (kind == MEMBER) {
        return member_in_place<T>(node, value);
    } else {
        const kestrin_data *v = variable(node[1]);
        *value = in_record<T>::in(v);
        return v->type == in_record<T>::letter;
    }
}

// The number of a node that hands it on. `ret_dat` is an owning slot, for what the node evaluates.
template <class T> [[gnu::always_inline]] inline T handed(const ULO *word, kestrin_data *ret_dat)
{
    check_stack(site::STACK_EVAL);
    const ULO *node = node_at(word);
    return reinterpret_cast<T (*)(const ULO *, kestrin_data *)>(node[0])(node + 1, ret_dat);
}

template <operands how, class T, operand_kind kind = ANY>
[[gnu::always_inline]] inline T fetch(const ULO *word, kestrin_data *ret_dat)
{
    if constexpr (kind == ANY) {
        return fetch_any<how, T>(word, ret_dat);
    } else if constexpr (kind == HANDED) {
        return handed<T>(word, ret_dat);
    } else if constexpr (kind == EXPRESSION || kind == MEMBER) {
        if constexpr (kind == MEMBER) {
            T value;
            if (read_in_place<T, kind>(word, &value)) [[likely]]
                return value;
        }
        eval_value(word, ret_dat);
        if (ret_dat->type == in_record<T>::letter) [[likely]]
            return in_record<T>::in(ret_dat);
        return cast_result<T>(word, ret_dat);
    } else {
        T value;
        if (read_in_place<T, kind>(word, &value)) [[likely]]
            return value;
        return cast_variable<T>(node_at(word));
    }
}

// Makes an owning slot answer a number. Array memory of an earlier value stays until it is freed.
template <class T> void answer(kestrin_data *ret_dat, T value)
{
    ret_dat->single = 1;
    ret_dat->type = in_record<T>::letter;
    in_record<T>::in(ret_dat) = value;
}

// The number of a constant or a single variable, where it stands.
template <class T, operand_kind kind = ANY> bool read_single(const ULO *word, T *value)
{
    const ULO *node = node_at(word);
    if constexpr (kind == MEMBER) return read_in_place<T, MEMBER>(word, value);
    if (kind == CONSTANT || (kind == ANY && is_node(node, in_record<T>::constant)))
        return read_in_place<T, CONSTANT>(word, value);
    if (kind == EXPRESSION || (kind == ANY && !is_node(node, in_record<T>::typed_read)))
        return false;
    return read_in_place<T, VARIABLE>(word, value) && variable(node[1])->single;
}

// Evaluates an operand that is proved a number into a record; it may be an array of them.
template <class T, operand_kind kind = ANY> void eval_number(const ULO *word, kestrin_data *ret_dat)
{
    T value = 0;
    if constexpr (kind == HANDED) {
        ret_dat->disable_ptr = 1;
        value = handed<T>(word, ret_dat);
    } else if (!read_single<T, kind>(word, &value)) {
        return eval(word, ret_dat);
    }
    if (rt_ctrl->rt_noterror) answer(ret_dat, value);
}

// -- Numeric instructions ----------------------------------------------------------------------

// The signature of `op` says the rest: how many operands, how each is fetched, the result's letter.
// `fault` takes the same operands and gives the error to raise, or rt_text::NONE. An operation in
// the sense of vm/forms.h.
template <auto op, auto fault = nullptr, bool of_members = true> struct numeric;

// An operation on numbers for those who have its operands.
struct numeric_row {
    fcall handler;        // the generic one
    const void *function; // numeric::direct
    const CHR *letters;   // of the operands' types
    CHR result;
    bool may_fault;
};

template <class T>
concept is_number = std::is_same_v<T, SLO> || std::is_same_v<T, DFL>;

template <class R, class... A, R (*op)(A...), auto fault, bool of_members>
struct numeric<op, fault, of_members> {
    static_assert((is_number<R> && ... && is_number<A>),
                  "an operation on numbers takes and gives SLO and DFL, no other types");
    using result = R;
    static constexpr wanted wants[] = {{in_record<A>::letter}...};
    static constexpr bool truth = false;
    static constexpr bool may_fault = !std::is_null_pointer_v<decltype(fault)>;
    static constexpr bool members = of_members && !may_fault;
    template <class> static constexpr operand_kind unknown = ANY;
    using every = std::index_sequence_for<A...>;

    // Braces fetch left to right.
    template <operands how, operand_kind... kinds, std::size_t... i>
    [[gnu::always_inline]] static std::tuple<A...>
    fetch_all(const ULO *dat_ptr, kestrin_data *ret_dat, std::index_sequence<i...>)
    {
        return std::tuple<A...>{fetch<how, A, kinds>(dat_ptr + i, ret_dat)...};
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

    template <operands how> static void run(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        ret_dat->disable_ptr = 1;
        const auto args = fetch_all<how, unknown<A>...>(dat_ptr, ret_dat, every());
        if (are_good(args, dat_ptr)) [[likely]]
            answer<R>(ret_dat, std::apply(op, args));
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
    static numeric_row row(fcall handler)
    {
        return {handler, reinterpret_cast<const void *>(&direct), letters, in_record<R>::letter,
                may_fault};
    }
    static void generic(const ULO *dat_ptr, kestrin_data *ret_dat) { run<CAST>(dat_ptr, ret_dat); }

    template <operand_kind... kinds> static R compute(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        const auto args = fetch_all<CAST, kinds...>(dat_ptr, ret_dat, every());
        if (may_fault && !are_good(args, dat_ptr)) [[unlikely]]
            return 0;
        return std::apply(op, args);
    }

    template <operand_kind... kinds> static bool compute_in_place(const ULO *dat_ptr, R *value)
    {
        return compute_all<kinds...>(dat_ptr, value, every());
    }

    template <operand_kind... kinds, std::size_t... i>
    [[gnu::always_inline]] static bool compute_all(const ULO *dat_ptr, R *value,
                                                   std::index_sequence<i...>)
    {
        std::tuple<A...> args;
        if (!(read_in_place<A, kinds>(dat_ptr + i, &std::get<i>(args)) && ...)) return false;
        if constexpr (may_fault)
            if (std::apply(fault, args) != rt_text::NONE) [[unlikely]]
                return false;
        *value = std::apply(op, args);
        return true;
    }
};

// All of them.
std::span<const numeric_row> integer_operations();
std::span<const numeric_row> float_operations();

// The generic handler and the fast one of an instruction.
#define HANDLERS(name, ...)                                                                        \
    HANDLER(name) { __VA_ARGS__::template run<CAST>(dat_ptr, ret_dat); }                           \
    HANDLER(name##_j) { __VA_ARGS__::template run<PROVED>(dat_ptr, ret_dat); }
