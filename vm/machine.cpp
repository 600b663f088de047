// The machine: set-up of a thread, the stack of frames, and the run of a program. The driver runs
// the program through kestrin_run(), and mapcar runs code of its own from inside a run.

#include "vm/machine.h"

#include <cstdlib>

#include "kestrin/strings.h"
#include "strings/state.h"
#include "terminal/keypress.h"
#include "vm/handler.h"
#include "vm/hot.h"
#include "vm/places.h"
#include "vm/stack.h"
#include "vm/watch.h"

FATAL_SITE(RUN_FRAME, "kestrin", "kestrin_run", 29)
FATAL_SITE(STACK_EVAL, "kestrin", "eval", 120)
FATAL_SITE(THREAD_SETUP, "kestrin", "setup_quarne_thread_safe_functionality_for_local_thread", 142)

constinit thread_local rt_control *rt_ctrl = nullptr;

engine the_engine = {};

namespace {

// The chunks of a thread's stack of frames are a list: `next` stands at the end of each, where
// frame_end points. They double in size up to a bound.
struct chunk_end {
    kestrin_data *next;
    ULO records; // of the next chunk
};

constexpr ULO FIRST_CHUNK = 1024, LARGEST_CHUNK = ULO(1) << 20;
constexpr ULO MOST_RECORDS = ULO(1) << 56;

// What layers above keep for a thread.
constexpr ULO MOST_ENDS = 4;

struct thread_blocks {
    rt_control control;
    hot_counters counters = fresh_counters();
    strings_state strings;
    chunk_end root = {nullptr, FIRST_CHUNK}; // where the list of chunks begins
    interrupt_handler former_interrupt;
    void (*ends[MOST_ENDS])();
    ULO ends_count;
};

constinit thread_local thread_blocks *blocks = nullptr;

chunk_end *end_of(kestrin_data *end)
{
    return end == nullptr ? &blocks->root : reinterpret_cast<chunk_end *>(end);
}

kestrin_data *make_chunk(chunk_end *before, ULO slots, ULO records, const fatal_site &site)
{
    while (records < slots && records < MOST_RECORDS) records *= 2;
    if (records >= MOST_RECORDS) fatal(site);
    void *block = malloc(records * sizeof(kestrin_data) + sizeof(chunk_end));
    if (block == nullptr) fatal(site);
    *before = {static_cast<kestrin_data *>(block), records};
    *end_of(before->next + records) = {nullptr, records < LARGEST_CHUNK ? records * 2 : records};
    return before->next;
}

void free_chunks(chunk_end *end)
{
    while (end->next != nullptr) {
        const chunk_end last = *end_of(end->next + end->records);
        free(end->next);
        *end = last;
    }
    end->records = FIRST_CHUNK;
}

void clear_errors(rt_control *rt)
{
    rt->rt_error_code = 0;
    rt->rt_run_flag = 0;
    equ(&rt->rt_error_text, nullptr);
    equ(&rt->rt_run_text, nullptr);
}

// BREAK or EXIT has reached the top: the run ends well, with the empty string.
void absorb_unwinding(rt_control *rt, kestrin_data *ret_dat)
{
    if (ret_dat->disable_ptr == 1) free_kst_data(ret_dat);
    *ret_dat = owning_slot;
    ret_dat->type = 'S';
    equ(&ret_dat->svalue, nullptr);
    rt->rt_noterror = 1;
    rt->rt_error_code = 0;
}

} // namespace

void setup_quarne_thread_safe_functionality_for_local_thread()
{
    find_stack_floor();
    if (blocks != nullptr) return;
    blocks = static_cast<thread_blocks *>(malloc(sizeof(thread_blocks)));
    if (blocks == nullptr) fatal(site::THREAD_SETUP);
    *blocks = {};
    rt_ctrl = &blocks->control;
    rt_ctrl->counters = &blocks->counters;
    strings_tls = &blocks->strings;
    former_interrupt_handler = &blocks->former_interrupt;
}

void cleanup_quarne_thread_safe_functionality_for_local_thread()
{
    if (blocks == nullptr) return;
    while (blocks->ends_count > 0) blocks->ends[--blocks->ends_count]();
    free_string(&rt_ctrl->rt_run_text);
    free_string(&rt_ctrl->rt_error_text);
    free_string(&rt_ctrl->rt_captured);
    free_chunks(&blocks->root);
    while (kestrin_data *spare = take_spare_places()) free(spare);
    rt_ctrl = nullptr;
    strings_tls = nullptr;
    former_interrupt_handler = nullptr;
    free(blocks);
    blocks = nullptr;
}

void at_end_of_thread(void (*end)())
{
    if (blocks == nullptr) return;
    if (blocks->ends_count == MOST_ENDS) fatal(site::THREAD_SETUP);
    blocks->ends[blocks->ends_count++] = end;
}

kestrin_data *next_frame_chunk(ULO slots, const fatal_site &site)
{
    chunk_end *here = end_of(rt_ctrl->frame_end);
    kestrin_data *chunk = here->next;
    if (chunk != nullptr && here->records < slots) {
        free_chunks(here);
        chunk = nullptr;
    }
    if (chunk == nullptr) chunk = make_chunk(here, slots, here->records, site);
    rt_ctrl->frame_end = chunk + here->records;
    rt_ctrl->frame_top = chunk + slots;
    return chunk;
}

UCH kestrin_run(const ULO *program, kestrin_data *ret_dat, UCH capture)
{
    rt_control *rt = rt_ctrl;
    kestrin_data *saved_top = rt->frame_top, *saved_end = rt->frame_end;
    const ULO slots = image_slots(program);
    kestrin_data *frame = slots == 0 ? nullptr : take_frame(rt, slots, site::RUN_FRAME);
    for (ULO i = 0; i < slots; i++) frame[i] = fresh_variable;
    const UCH ended_well = kestrin_run_on(frame, program, ret_dat, capture);
    for (ULO i = 0; i < slots; i++) release(&frame[i]);
    rt->frame_top = saved_top;
    rt->frame_end = saved_end;
    return ended_well;
}

UCH kestrin_run_on(kestrin_data *frame, const ULO *program, kestrin_data *ret_dat, UCH capture)
{
    rt_control *rt = rt_ctrl;
    clear_errors(rt);
    equ(&rt->rt_captured, nullptr);
    rt->rt_capture = capture;
    rt->rt_program = rt->rt_function = program;
    rt->rt_frame = frame;
    if (the_engine.watcher == nullptr)
        call(image_main_node(program), ret_dat);
    else
        run_watched(rt, rt->watched.node, ret_dat);
    rt->rt_frame = nullptr;

    if (rt->rt_error_code == UNWIND_BREAK || rt->rt_error_code == UNWIND_EXIT) {
        absorb_unwinding(rt, ret_dat);
        return 1;
    }
    return rt->rt_noterror;
}
