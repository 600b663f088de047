// The driver's messages.

#include "driver/session.h"

#include <cstdarg>
#include <cstdio>

#include "vm/machine.h"

void print_message(message which, ...)
{
    enum { NO_FLUSH, FLUSH };
    va_list arguments;
    va_start(arguments, which);
    switch (which) {
#define MESSAGE(id, stream, flush, text)                                                           \
    case message::id:                                                                              \
        vfprintf(stream, text, arguments);                                                         \
        if (flush == FLUSH) fflush(stream);                                                        \
        break;
#include "driver/messages.def"
#undef MESSAGE
    }
    va_end(arguments);
}

void print_warnings(std::string_view warnings)
{
    fwrite(warnings.data(), 1, warnings.size(), stdout);
}

void die_of_syntax_error()
{
    die(message::SYNTAX_ERROR, unsigned(rt_ctrl->rt_run_flag), rt_ctrl->rt_run_text);
}
