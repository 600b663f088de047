#include "driver/run.h"

#include <cstdio>

#include "kestrin/strings.h"
#include "kestrin/unit.h"
#include "vm/handler.h"
#include "vm/machine.h"
#include "vm/text.h"

namespace {

void print_text(CHR **text)
{
    show_nuls(text, *text);
    fwrite(*text, 1, len(*text), stdout);
}

[[noreturn]] void die_of_runtime_error()
{
    const rt_control *rt = rt_ctrl;
    die(message::RUNTIME_ERROR, unsigned(rt->rt_error_code),
        notempty(rt->rt_error_text) ? rt->rt_error_text : "Unknown error.");
}

} // namespace

void print_value(kestrin_data *value)
{
    switch (value->type) {
    case 'F': printf("%.16E", value->value.fval); break;
    case 'I': printf("%ld", value->value.ival); break;
    case 'S': print_text(&value->svalue); break;
    case 'Z': fputs("`NIL'", stdout); break;
    default: break;
    }
    putchar('\n');
}

bool run_to_end(session *s)
{
    static kestrin_data value = owning_slot; // never freed: the process ends behind it
    startup_callback();
    const bool done = kestrin_run(reinterpret_cast<const ULO *>(s->prog_text), &value, 0);
    if (done) print_value(&value);
    taskjob_end_callback(0);
    return done;
}

void run_program(session *s)
{
    if (!run_to_end(s)) die_of_runtime_error();
}
