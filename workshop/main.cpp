// kst: finds the verb and calls it, on the stack that programs run on.

#include <cstdio>
#include <cstdlib>
#include <string>

#include "vm/stack.h"
#include "workshop/verb.h"

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

} // namespace

int main(int argc, char **argv)
{
    words = std::span<CHR *const>(argv, static_cast<ULO>(argc)).subspan(argc > 0 ? 1 : 0);
    run_on_large_stack([] { exit(answer()); });
}
