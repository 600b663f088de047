// Programs tried out in processes of their own.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "workshop/fault.h"
#include "workshop/watch.h"

struct trial {
    source from;
    std::string input;               // its standard input
    std::vector<std::string> words;  // behind its file
    std::vector<file_place> watched; // forms whose values are wanted
};

// What became of it.
enum class ending : UCH { EXIT, SIGNAL, TOO_LATE, TOO_MUCH };
struct outcome {
    ending how = ending::EXIT;
    int status = 0;       // exit status or number of the signal
    std::string out, err; // what it wrote
    UCH error_code = 0;   // of a runtime error that was its end
    std::vector<form_value> values;
    double seconds = 0;
};

// A program that has written more than this is ended.
constexpr ULO most_output = ULO(16) << 20;

// Runs the trials, `jobs` at a time, each without a terminal and for at most `seconds`, and tells
// the end of each as it comes. What is left of the processes when this process is interrupted is
// ended too.
void run_trials(const std::vector<trial> &trials, ULO jobs, ULO seconds,
                const std::function<void(ULO, const outcome &)> &tell);
