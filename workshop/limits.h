// Bounds of a program that one does not trust. They hold for the one program that a process runs.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "kestrin/types.h"

// What is bounded, as it was given and as a number. An empty text: it is not.
struct bound {
    std::string_view text;
    double number = 0;
};

struct limits {
    bound time;   // seconds by the clock
    bound memory; // bytes, beyond what the start takes
    bound output; // bytes of each file that is written
    bool no_files = false;
    bool no_environment = false;
    bool any() const;
};

// Reads "time=2,memory=64M", which must live as long as the process. False with the reason in
// `*why`.
bool read_limits(std::string_view text, limits *into, std::string *why);

// What read_limits() knows.
std::vector<std::string_view> limit_names();

// Empties the environment and starts the time. The end of the process tells in one line what the
// limits have kept from the program, and has status 1 then. Once, ahead of the engine's start.
void begin_limits(const limits &wanted);
// All that the program comes from has been read: the other limits hold from here on. False with
// the reason in `*why` where the system can't see to them. Does nothing without limits.
bool close_limits(std::string *why);

// The program begins to run: the end of its time ends it as an error would.
void begin_limited_run();
// Whether the error of a run is one of its limits, which is told at the end of the process.
bool has_limit_ended_run();
