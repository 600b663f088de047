// kst: finds the verb and calls it, on the stack that programs run on.

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "driver/start.h"
#include "kestrin/unit.h"
#include "strings/scratch.h"
#include "vm/engine.h"
#include "vm/stack.h"
#include "workshop/verb.h"

void callback_of_the_unit(SLO id, CHR **request);

namespace {

std::span<CHR *const> words; // of the command, behind its name

void print_usage(FILE *stream)
{
    fputs("usage: kst VERB [option ...] [operand ...]\n\n", stream);
    for (const verb *v : verbs())
        fprintf(stream, "  %-8s %.*s\n", std::string(v->name).c_str(), int(v->help.size()),
                v->help.data());
    fputs("\nkst VERB --help tells what a verb takes; kst --version is for reports.\n", stream);
}

int call(std::string_view name)
{
    for (const verb *v : verbs())
        if (v->name == name) return call_verb(*v, words.subspan(1));
    return refused("kst", std::string("no such verb: `").append(name).append("'"));
}

int answer()
{
    if (words.empty()) {
        print_usage(stderr);
        return STATUS_MISUSE;
    }
    const std::string_view first = words[0];
    if (first == "--version") {
        puts("kst " KST_VERSION);
        return STATUS_GOOD;
    }
    if (first != "-h" && first != "--help") return call(first);
    print_usage(stdout);
    return STATUS_GOOD;
}

// A command whose output is not all written has not done its work.
int settle_output(int status)
{
    errno = 0;
    if (fflush(stdout) == 0 && ferror(stdout) == 0) return status;
    fprintf(stderr, "kst: can't write all of the output%s%s\n", errno == 0 ? "" : ": ",
            errno == 0 ? "" : strerror(errno));
    return STATUS_MISUSE;
}

} // namespace

// What the default extension unit does is wanted, and whether it was asked for the environment.
void user_io_callback(SLO id, CHR **request)
{
    scratch word;
    if (view(head(&word.s, *request)) == "GetEnv") the_engine.environment_asked = 1;
    callback_of_the_unit(id, request);
}

int main(int argc, char **argv)
{
    fill_standard_descriptors();
    words = std::span<CHR *const>(argv, static_cast<ULO>(argc)).subspan(argc > 0 ? 1 : 0);
    run_on_large_stack([] { exit(settle_output(answer())); });
}
