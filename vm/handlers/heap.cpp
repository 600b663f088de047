// Instructions of the asynchronous heap. Every use of a descriptor is looked up first, and every
// offset is held against the block's size: words for numbers, bytes for strings.

#include <cstring>

#include "vm/async_heap.h"
#include "vm/handler.h"
#include "vm/text.h"

namespace {

// An operation that answers through its first parameter and gives the error to raise, or NONE.
template <auto op> struct checked;

template <class R, class... A, rt_text (*op)(R *, A...)> struct checked<op> {
    static void run(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        ret_dat->disable_ptr = 1;
        const held_operands<A...> held(dat_ptr, dat_ptr + sizeof...(A), ret_dat, true);
        if (!rt_ctrl->rt_noterror) [[unlikely]]
            return;
        const rt_text found =
            held.pass([ret_dat](A... a) { return answer_by(ret_dat, a...); }, ret_dat);
        if (found != rt_text::NONE) [[unlikely]]
            raise_error(found, dat_ptr);
    }

    static rt_text answer_by(kestrin_data *ret_dat, A... a)
    {
        if constexpr (std::is_same_v<R, CHR *>) {
            const rt_text found = op(&ret_dat->svalue, a...);
            if (found == rt_text::NONE) answer_text(ret_dat);
            return found;
        } else {
            R result = 0;
            const rt_text found = op(&result, a...);
            if (found == rt_text::NONE) answer<R>(ret_dat, result);
            return found;
        }
    }
};

// An operation on a whole block.
template <auto op, rt_text no_block> rt_text with_block(SLO *result, ULO descriptor)
{
    rbt_node *block = find_block(descriptor);
    if (block == nullptr) return no_block;
    *result = op(block);
    return rt_text::NONE;
}

SLO address(const rbt_node *block) { return static_cast<SLO>(block->key.number); }
SLO copy_of(const rbt_node *block) { return static_cast<SLO>(replicate_block(block)); }
SLO discard(rbt_node *block)
{
    delete_block(block);
    return 1;
}

SLO create(SLO size) { return static_cast<SLO>(create_block(static_cast<ULO>(size))); }

rt_text reallocate(SLO *result, ULO descriptor, ULO size)
{
    rbt_node *block = find_block(descriptor);
    if (block == nullptr) return rt_text::REALLOCATE_DESCRIPTOR;
    *result = static_cast<SLO>(reallocate_block(block, size));
    return rt_text::NONE;
}

template <class T, rt_text no_block, rt_text no_range>
rt_text get_word(T *result, ULO descriptor, SLO index)
{
    const rbt_node *block = find_block(descriptor);
    if (block == nullptr) return no_block;
    if (!holds_word(block, index)) return no_range;
    memcpy(result, block_bytes(block) + index * sizeof(T), sizeof(T));
    return rt_text::NONE;
}

template <class T, rt_text no_block, rt_text no_range>
rt_text put_word(SLO *result, ULO descriptor, SLO index, T value)
{
    const rbt_node *block = find_block(descriptor);
    if (block == nullptr) return no_block;
    if (!holds_word(block, index)) return no_range;
    memcpy(block_bytes(block) + index * sizeof(T), &value, sizeof(T));
    *result = 1;
    return rt_text::NONE;
}

rt_text put_string(SLO *result, ULO descriptor, SLO offset, const CHR *string)
{
    const rbt_node *block = find_block(descriptor);
    if (block == nullptr) return rt_text::PUTSTRING_DESCRIPTOR;
    const ULO length = len(string);
    if (!holds_bytes(block, offset, static_cast<SLO>(length))) return rt_text::PUTSTRING_RANGE;
    if (length > 0) memcpy(block_bytes(block) + offset, string, length);
    *result = 1;
    return rt_text::NONE;
}

// A negative length is in range and then no string can be so long: out of memory.
rt_text get_string(CHR **targ, ULO descriptor, SLO offset, SLO length)
{
    const rbt_node *block = find_block(descriptor);
    if (block == nullptr) return rt_text::GETSTRING_DESCRIPTOR;
    if (!holds_bytes(block, offset, length)) return rt_text::GETSTRING_RANGE;
    mk_fst_buff(targ, static_cast<ULO>(length));
    if (length >= 0 && len(*targ) == static_cast<ULO>(length))
        memcpy(*targ, block_bytes(block) + offset, static_cast<ULO>(length));
    return rt_text::NONE;
}

} // namespace

#define WORD_HANDLERS(get, put, type, GET, PUT)                                                    \
    HANDLERS(get, checked<get_word<type, rt_text::GET##_DESCRIPTOR, rt_text::GET##_RANGE>>)        \
    HANDLERS(put, checked<put_word<type, rt_text::PUT##_DESCRIPTOR, rt_text::PUT##_RANGE>>)

WORD_HANDLERS(asyncheap_getint, asyncheap_putint, SLO, GETINT, PUTINT)
WORD_HANDLERS(asyncheap_getfloat, asyncheap_putfloat, DFL, GETFLOAT, PUTFLOAT)
HANDLERS(asyncheap_putstring, checked<put_string>)
HANDLERS(asyncheap_getstring, checked<get_string>)
HANDLERS(asyncheap_create, numeric<create>)
HANDLERS(asyncheap_getaddress, checked<with_block<address, rt_text::GETADDRESS_DESCRIPTOR>>)
HANDLERS(asyncheap_reallocate, checked<reallocate>)
HANDLERS(asyncheap_replicate, checked<with_block<copy_of, rt_text::REPLICATE_DESCRIPTOR>>)
HANDLERS(asyncheap_delete, checked<with_block<discard, rt_text::DELETE_DESCRIPTOR>>)
