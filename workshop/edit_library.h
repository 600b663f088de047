// The line editor's library, loaded when a person is at the terminal: the verbs that run programs
// start without it, which is half of their time.
#pragma once

#include <histedit.h>

struct edit_library {
    decltype(&::el_init) el_init;
    decltype(&::el_end) el_end;
    decltype(&::el_set) el_set;
    decltype(&::el_get) el_get;
    decltype(&::el_gets) el_gets;
    decltype(&::el_line) el_line;
    decltype(&::el_source) el_source;
    decltype(&::el_insertstr) el_insertstr;
    decltype(&::history) history;
    decltype(&::history_init) history_init;
    decltype(&::history_end) history_end;
};

// NULL where it is not installed.
const edit_library *load_edit_library();
