// Looks a thousand times a second at what a watched run does.
//
// The calls with a frame are told by their records. In native code functions may have none: there
// the place in the code and the return addresses on the stack tell the rest, so that such code
// keeps its speed.
#pragma once

#include <functional>

#include "kestrin/types.h"

struct sampled_call {
    const ULO *site;  // node of the call; NULL: the program's own run
    const ULO *image; // of the function
};

// Its calls stand behind it, innermost first. The program's own run is the last, unless there are
// more calls than fit.
struct sample {
    static constexpr ULO MOST_CALLS = ULO(1) << 20;
    const ULO *node = nullptr; // that runs; NULL: none
    ULO microseconds = 0;      // since the last sample
    ULO count = 0;             // of calls
    sampled_call *calls() { return reinterpret_cast<sampled_call *>(this + 1); }
    const sampled_call *calls() const { return reinterpret_cast<const sampled_call *>(this + 1); }
};

// Samples the calling thread, the only one that runs a program, from now on. All samples are given
// to `take` in another thread or, with the rest of the time, in stop_sampling(). `interrupted` is
// called when SIGINT comes, which ends the process when it has returned. False if the system gives
// no thread, timer or memory. Once in a process.
bool start_sampling(std::function<void(const sample &)> take, std::function<void()> interrupted);
void stop_sampling();
