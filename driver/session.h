// One process of the program: what the command line and the environment say, and the text on its
// way from the file to the run. Strings live as long as the process.
#pragma once

#include <string_view>

#include "kestrin/types.h"

enum print_switch {
#define SWITCH(id, ...) SWITCH_##id,
#include "driver/switches.def"
#undef SWITCH
    SWITCHES
};

enum disk_mode { DISK_NONE, DISK_COMPILE, DISK_COMPILE_MINIMISED, DISK_SHOW_DEBUG_INFO };

struct session {
    int argc;
    char **argv;
    bool verbose;
    disk_mode mode;
    int first_arg_index; // argv index of the program file
    UCH switches[SWITCHES];
    CHR *cfg_profile_path;
    CHR *prog_text; // source text, then compiled, then linked code
    CHR *prog_text_untyped;

    const CHR *file() const { return argv[first_arg_index]; }
    ULO words_behind_file() const { return ULO(argc - first_arg_index - 1); }
    bool is_on(print_switch s) const { return switches[s] == 1; }
};

enum class message {
#define MESSAGE(id, ...) id,
#include "driver/messages.def"
#undef MESSAGE
};

// Prints a message on its stream. Arguments as its text wants them.
void say(message which, ...);
// The same in a talking run; nothing in a quiet one.
template <class... A> void tell(const session *s, message which, A... arguments)
{
    if (s->verbose) say(which, arguments...);
}
// Prints the warnings of a pass as they are, if there are any.
void print_warnings(std::string_view warnings);
// The same, then ends the process with status 1.
[[noreturn]] void die(message which, ...);
// Prints the syntax error that a pass has left and ends the process with status 1.
[[noreturn]] void die_of_syntax_error();
