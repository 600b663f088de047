// A verb of kst: what it is called, what it takes and what it does. One file a verb; the table of
// them all stands in verb.cpp. Words are read here, once for all verbs, and so is --help answered.
#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "kestrin/types.h"

// An option in front of the operands, as "--json". `value` names its argument, as "TEXT"; empty for
// an option without one. "-h" and "--help" are every verb's.
struct option {
    std::string_view name, value, help;
};

// The words behind a verb, taken apart.
class request {
public:
    bool has(std::string_view option) const { return find(option) != nullptr; }
    // The argument of an option; NULL if the option is not there. The last of several counts.
    const CHR *value(std::string_view option) const;

    std::vector<const CHR *> operands;

private:
    struct given {
        std::string_view name;
        const CHR *value;
    };
    const given *find(std::string_view option) const;
    std::vector<given> options_;
    friend int call_verb(const struct verb &asked, std::span<CHR *const> words);
};

// Exit statuses: all is well; a fault in a program or file; words that kst can't do anything with.
enum : int { STATUS_GOOD = 0, STATUS_FAULT = 1, STATUS_MISUSE = 2 };

struct verb {
    std::string_view name;
    std::string_view operands; // as usage shows them, "FILE [WORD ...]"
    std::string_view help;     // one line: what it does
    std::span<const option> options;
    int (*run)(const request &asked); // returns the exit status
    ULO least = 0, most = ~ULO(0);    // operands
    // All words behind the first operand, or behind an option of this name, are operands, whatever
    // they begin with: they belong to a program.
    bool passes_words = false;
    std::string_view first_operand = {};
    // Whether a word that looks like an option is an operand; NULL: none is.
    bool (*is_operand)(std::string_view word) = nullptr;
};

// Whether a file is the standard input, where it is read, or the standard output, where it is
// written.
constexpr bool is_standard_stream(std::string_view path) { return path == "-"; }

// All verbs, in the order in which help lists them.
std::span<const verb *const> verbs();

// Runs a verb on the words behind it and returns its status. Words that do not fit it are
// refused() without a run.
int call_verb(const verb &asked, std::span<CHR *const> words);

// What verbs that look at programs take.
inline constexpr option PROFILE_OPTION = {"--cfg", "FILE", "global functions of the program"};

// The argument of an option as a number from 1 to `most`; left as it is if the option is not there.
// False for anything else.
bool read_number(const request &asked, std::string_view option, ULO most, ULO *number);

// Says what is wrong with the words of a command, in one line on stderr. `command` is "kst" or
// "kst run". Returns STATUS_MISUSE.
int refused(std::string_view command, std::string_view why);
