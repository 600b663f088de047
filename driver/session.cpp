// The driver's messages.

#include "driver/session.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "vm/machine.h"

namespace {

void print(message which, va_list arguments)
{
    switch (which) {
#define MESSAGE(id, stream, text)                                                                  \
    case message::id:                                                                              \
        vfprintf(stream, text, arguments);                                                         \
        break;
#include "driver/messages.def"
#undef MESSAGE
    }
}

} // namespace

void say(message which, ...)
{
    va_list arguments;
    va_start(arguments, which);
    print(which, arguments);
    va_end(arguments);
}

void die(message which, ...)
{
    va_list arguments;
    va_start(arguments, which);
    print(which, arguments);
    va_end(arguments);
    exit(1);
}

void die_of_syntax_error()
{
    die(message::SYNTAX_ERROR, unsigned(rt_ctrl->rt_run_flag), rt_ctrl->rt_run_text);
}
