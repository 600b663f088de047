// One process of the program: what the command line and the environment say, and the text on its
// way from the file to the run. Strings live as long as the process.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <sys/time.h>
#include <type_traits>

#include "bytecode/compile.h"
#include "frontend/tree.h"
#include "kestrin/types.h"

enum print_switch {
#define SWITCH(id, ...) SWITCH_##id,
#include "driver/switches.def"
#undef SWITCH
    SWITCHES
};

inline constexpr struct {
    const CHR *variable; // of the environment
    UCH value;           // without it
} switch_rows[] = {
#define SWITCH(id, variable, value) {variable, value},
#include "driver/switches.def"
#undef SWITCH
};

enum disk_mode { DISK_NONE, DISK_COMPILE, DISK_COMPILE_MINIMISED, DISK_SHOW_DEBUG_INFO };

// A point of the process's time. All zero where nobody asks.
struct time_point {
    rusage used;
    timeval now;
};

struct session {
    int argc;
    char **argv;
    bool verbose;
    disk_mode mode;
    int first_arg_index; // argv index of the program file
    bool is_packed;      // the program is part of argv[0], and its words arrive as they are
    UCH switches[SWITCHES];
    CHR *cfg_profile_path;
    tree program;
    tree set;                            // of the global functions
    std::vector<node_index> definitions; // in it
    std::string stored_set; // of -c: the global functions and the program ahead of the type pass
    std::string stored_program;
    std::vector<code_place> *set_places, *program_places; // of their code, for who wants them
    CHR *prog_text;   // the program as compiled, then linked code
    time_point start; // of what the next time report is about

    const CHR *file() const { return argv[first_arg_index]; }
    ULO words_behind_file() const { return ULO(argc - first_arg_index - 1); }
    // The i-th of them, from 1.
    const CHR *word(ULO i) const { return argv[ULO(first_arg_index) + i]; }
    bool is_storing() const { return mode == DISK_COMPILE || mode == DISK_COMPILE_MINIMISED; }
    bool is_on(print_switch s) const { return switches[s] == 1; }
};

enum class message {
#define MESSAGE(id, ...) id,
#include "driver/messages.def"
#undef MESSAGE
};

inline constexpr std::string_view message_texts[] = {
#define MESSAGE(id, stream, flush, text) text,
#include "driver/messages.def"
#undef MESSAGE
};

// What a text writes for an argument of this type; empty if no text takes such a one.
template <class A> constexpr std::string_view conversion_of()
{
    if (std::is_convertible_v<A, const CHR *>) return "%s";
    if (std::is_same_v<A, int>) return "%d";
    if (std::is_same_v<A, unsigned>) return "%u";
    if (std::is_same_v<A, ULO>) return "%lu";
    return {};
}

// True if the text has these conversions in this order and no other.
constexpr bool has_conversions(std::string_view text,
                               std::initializer_list<std::string_view> conversions)
{
    for (std::string_view conversion : conversions) {
        const auto at = text.find('%');
        text.remove_prefix(at == text.npos ? text.size() : at);
        if (conversion.empty() || !text.starts_with(conversion)) return false;
        text.remove_prefix(conversion.size());
    }
    return text.find('%') == text.npos;
}

// A message whose text takes arguments of these types: any other does not compile.
template <class... A> struct message_of {
    message id;
    consteval message_of(message which) : id(which)
    {
        if (!has_conversions(message_texts[static_cast<int>(which)], {conversion_of<A>()...}))
            arguments_do_not_fit_the_text();
    }
    static void arguments_do_not_fit_the_text(); // no constant, hence an error; never defined
};

// Prints a message on its stream; the arguments are those that its text takes.
void print_message(message which, ...);

template <class... A> void say(message_of<std::type_identity_t<A>...> which, A... arguments)
{
    print_message(which.id, arguments...);
}
// The same in a talking run; nothing in a quiet one.
template <class... A>
void tell(const session *s, message_of<std::type_identity_t<A>...> which, A... arguments)
{
    if (s->verbose) print_message(which.id, arguments...);
}
// The same, then ends the process with status 1.
template <class... A>
[[noreturn]] void die(message_of<std::type_identity_t<A>...> which, A... arguments)
{
    fflush(stdout); // what was said before stands before
    print_message(which.id, arguments...);
    exit(1);
}
// Prints the warnings of a pass as they are, if there are any.
void print_warnings(std::string_view warnings);
// Prints the syntax error that a pass has left and ends the process with status 1.
[[noreturn]] void die_of_syntax_error();
