// A run that is watched, by a profile or a trace. Who watches says so in the process record before
// code is linked: the linker puts handlers in that tell of calls and statements, and native code is
// made so that it can be followed. Code of other runs has nothing of it.
#pragma once

#include <atomic>
#include <span>

#include "vm/engine.h"
#include "vm/handler.h"
#include "vm/moves.h"

// A call of a function with a frame, or the run of a program. It lasts as long as that.
struct call_record {
    const call_record *outer;
    const ULO *site;  // node of the call, or that ran when the program was to run; NULL: none
    const ULO *image; // of the function
    const kestrin_data *frame;
};

struct call_watcher {
    // Where the calls of a function are counted.
    ULO *(*counter)(const ULO *image);
    // NULL, or told of each call: ahead of it, when the arguments stand in the frame, and behind
    // it. With an error, a BREAK or an EXIT pending there is no answer.
    void (*enters)(const call_record &call);
    void (*leaves)(const call_record &call, const kestrin_data *answer);
};

// Counters by images, the last that were asked for: most calls are of few functions.
struct counter_cache {
    static constexpr ULO SIZE = 64;
    const ULO *images[SIZE];
    ULO *counters[SIZE];
};
inline constinit counter_cache recent_counters = {};

inline void count_watched_call(const ULO *image)
{
    const ULO i = reinterpret_cast<ULO>(image) / sizeof(ULO) % counter_cache::SIZE;
    if (recent_counters.images[i] != image) [[unlikely]] {
        recent_counters.images[i] = image;
        recent_counters.counters[i] = the_engine.watcher->counter(image);
    }
    ++*recent_counters.counters[i];
}

// Runs the main node of the image that stands in the thread's record, with its frame. With an error
// of an argument pending there is no call.
inline void run_watched(rt_control *rt, const ULO *site, kestrin_data *ret_dat)
{
    if (!rt->rt_noterror) return call(image_main_node(rt->rt_function), ret_dat);
    const call_record here = {rt->watched.calls, site, rt->rt_function, rt->rt_frame};
    const ULO *caller = rt->watched.node, *body = image_main_node(here.image);
    const call_watcher *watcher = the_engine.watcher;
    std::atomic_signal_fence(std::memory_order_release); // a signal handler may look at it
    rt->watched.calls = &here;
    rt->watched.node = body;
    count_watched_call(here.image);
    if (watcher->enters != nullptr) watcher->enters(here);
    call(body, ret_dat);
    if (watcher->leaves != nullptr) watcher->leaves(here, ret_dat);
    rt->watched.calls = here.outer;
    rt->watched.node = caller;
    std::atomic_signal_fence(std::memory_order_release);
}

// Handlers for watched runs, and the handlers that they stand for.
std::span<const handler_form> watched_forms();
// The handler for a watched run; most are their own.
fcall watched_form(fcall handler);
