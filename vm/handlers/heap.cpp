// Instructions of the asynchronous heap. Every use of a descriptor is looked up first, and every
// offset is held against the block's size: words for numbers, bytes for strings.

#include <cstring>

#include "vm/async_heap.h"
#include "vm/handler.h"
#include "vm/text.h"

namespace {

// An operation on the block of a descriptor, the first operand. It answers through its first
// parameter; false if its range does not lie within the block.
template <auto op, rt_text no_block, rt_text no_range> struct on_block;

template <class R, class... A, bool (*op)(R *, rbt_node *, A...), rt_text no_block,
          rt_text no_range>
struct on_block<op, no_block, no_range> {
    static void run(const ULO *dat_ptr, kestrin_data *ret_dat)
    {
        with_operands<ULO, A...>(dat_ptr, ret_dat, [=](ULO descriptor, A... a) {
            rbt_node *block = find_block(descriptor);
            if (block == nullptr) return raise_error(no_block, dat_ptr);
            if constexpr (std::is_same_v<R, CHR *>) {
                if (!op(&ret_dat->svalue, block, a...)) return raise_error(no_range, dat_ptr);
                answer_text(ret_dat);
            } else {
                R result = 0;
                if (!op(&result, block, a...)) return raise_error(no_range, dat_ptr);
                answer<R>(ret_dat, result);
            }
        });
    }
};

template <auto op> bool whole(SLO *result, rbt_node *block)
{
    *result = static_cast<SLO>(op(block));
    return true;
}

ULO address(const rbt_node *block) { return block->key.number; }
bool discard(rbt_node *block)
{
    delete_block(block);
    return true;
}

SLO create(SLO size) { return static_cast<SLO>(create_block(static_cast<ULO>(size))); }

bool reallocate(SLO *result, rbt_node *block, ULO size)
{
    *result = static_cast<SLO>(reallocate_block(block, size));
    return true;
}

template <class T> bool get_word(T *result, rbt_node *block, SLO index)
{
    if (!holds_word(block, index)) return false;
    memcpy(result, block_bytes(block) + index * sizeof(T), sizeof(T));
    return true;
}

template <class T> bool put_word(SLO *result, rbt_node *block, SLO index, T value)
{
    *result = holds_word(block, index);
    if (*result) memcpy(block_bytes(block) + index * sizeof(T), &value, sizeof(T));
    return *result;
}

bool put_string(SLO *result, rbt_node *block, SLO offset, const CHR *string)
{
    const ULO length = len(string);
    *result = holds_bytes(block, offset, static_cast<SLO>(length));
    if (*result && length > 0) memcpy(block_bytes(block) + offset, string, length);
    return *result;
}

// A negative length is in range and then no string can be so long: out of memory.
bool get_string(CHR **targ, rbt_node *block, SLO offset, SLO length)
{
    if (!holds_bytes(block, offset, length)) return false;
    mk_fst_buff(targ, static_cast<ULO>(length));
    if (length >= 0 && len(*targ) == static_cast<ULO>(length))
        memcpy(*targ, block_bytes(block) + offset, static_cast<ULO>(length));
    return true;
}

} // namespace

#define ON_BLOCK(name, ERROR, ...)                                                                 \
    HANDLERS(name, on_block<__VA_ARGS__, rt_text::ERROR##_DESCRIPTOR, rt_text::NONE>)
#define IN_BLOCK(name, ERROR, ...)                                                                 \
    HANDLERS(name, on_block<__VA_ARGS__, rt_text::ERROR##_DESCRIPTOR, rt_text::ERROR##_RANGE>)

HANDLERS(asyncheap_create, numeric<create>)
ON_BLOCK(asyncheap_getaddress, GETADDRESS, whole<address>)
IN_BLOCK(asyncheap_putint, PUTINT, put_word<SLO>)
IN_BLOCK(asyncheap_getint, GETINT, get_word<SLO>)
IN_BLOCK(asyncheap_putfloat, PUTFLOAT, put_word<DFL>)
IN_BLOCK(asyncheap_getfloat, GETFLOAT, get_word<DFL>)
IN_BLOCK(asyncheap_putstring, PUTSTRING, put_string)
IN_BLOCK(asyncheap_getstring, GETSTRING, get_string)
ON_BLOCK(asyncheap_reallocate, REALLOCATE, reallocate)
ON_BLOCK(asyncheap_replicate, REPLICATE, whole<replicate_block>)
ON_BLOCK(asyncheap_delete, DELETE, whole<discard>)
