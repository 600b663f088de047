// The machine's record of a thread, the run of a linked program and the stack of frames.
#pragma once

#include "kestrin/errors.h"
#include "kestrin/value.h"
#include "strings/fatal.h"

// Unwinding marks: BREAK and EXIT travel as error codes that no program sees.
enum : UCH { UNWIND_BREAK = 254, UNWIND_EXIT = 255 };

// What becomes of a recursion too deep: the process ends by the fatal report; the run ends by an
// error, as any other does; or by one that MAPCAR does not keep for itself.
enum class recursion : UCH { ENDS_PROCESS, IS_ERROR, ENDS_RUN, HAS_ENDED_RUN };

struct error_trail;

// What is left to the rounds of loops and the calls of functions until they are hot (vm/hot.h).
struct hot_counters {
    static constexpr ULO COUNT = 64;
    unsigned rounds[COUNT], calls[COUNT];
    unsigned called[COUNT]; // which function was called when its calls were last at an end
    unsigned patience;      // with functions that take turns at a counter
};

struct call_record;

// Where a run that is watched is (vm/watch.h).
struct watched_place {
    const call_record *calls = nullptr; // the innermost call
    const ULO *node = nullptr; // the statement or, in native code, what the engine is called for
    // Where the return address of a function without a frame stands while it calls the engine.
    const void *const *direct = nullptr;
};

// All state of a run, one for each thread. What is not set here begins with zero.
struct rt_control {
    UCH rt_run_flag;         // syntax error code of the text passes, 0 none
    CHR *rt_run_text;        // its text
    UCH rt_error_code;       // runtime error code, 0 none
    CHR *rt_error_text;      // its text
    kestrin_data *rt_frame;  // variable slots of the running function
    const ULO *rt_program;   // root image of the running program: a counted string
    const ULO *rt_function;  // image of the running function
    CHR *rt_captured;        // output of a captured run
    UCH rt_capture;          // 1: output goes to rt_captured
    UCH rt_noterror = 1;     // 1 while no error or unwinding is pending
    kestrin_data *frame_top; // first free record of the stack of frames
    kestrin_data *frame_end; // end of its current chunk; the next chunk's address stands there
    recursion rt_recursion;  // too deep
    error_trail *rt_trail;   // notes an error for those who ask; else NULL
    kestrin_data *spare;     // blocks of the fewest places, for arrays to come: a list by array.mix
    ULO spare_count;         // how many
    hot_counters *counters;  // of the running program
    UCH for_goes_on;         // 1: the FOR that is called next goes on behind its body
    const CHR *call_floor;   // lowest address at which native code calls a function
    watched_place watched;   // of a run that is watched
};

// NULL on a thread without set-up.
extern constinit thread_local rt_control *rt_ctrl;

// Has the clean-up of the calling thread call `end`. A thread without set-up has no clean-up.
void at_end_of_thread(void (*end)());

// The calling thread's one T: made when it is first asked for, gone with the thread's clean-up.
template <class T> T &of_thread()
{
    static constinit thread_local T *mine = nullptr;
    if (mine == nullptr) {
        mine = new T;
        at_end_of_thread([] {
            delete mine;
            mine = nullptr;
        });
    }
    return *mine;
}

// Runs a linked program, a counted string, with `ret_dat` as an owning slot for the result.
// `capture` 1 collects output in rt_captured. Returns 1 on a normal end, also by BREAK or EXIT at
// the top, and 0 with a runtime error pending.
UCH kestrin_run(const ULO *program, kestrin_data *ret_dat, UCH capture);

// The same on a frame of the caller's: as many records as the program has slots. They hold values
// before the run, and the values that it leaves afterwards, also after an error.
UCH kestrin_run_on(kestrin_data *frame, const ULO *program, kestrin_data *ret_dat, UCH capture);

// Records of the thread's stack of frames from a further chunk; the caller puts frame_top and
// frame_end back as they were when it is done. `site` is reported when memory runs out.
kestrin_data *next_frame_chunk(ULO slots, const fatal_site &site);

// The usual case: `slots` records right at frame_top.
inline kestrin_data *take_frame(rt_control *rt, ULO slots, const fatal_site &site)
{
    kestrin_data *frame = rt->frame_top;
    if (slots > ULO(rt->frame_end - frame)) [[unlikely]]
        return next_frame_chunk(slots, site);
    rt->frame_top = frame + slots;
    return frame;
}
