// kst fmt: files in the one layout.

#include <algorithm>
#include <cstdio>
#include <string>

#include "workshop/layout.h"
#include "workshop/program.h"
#include "workshop/replace_file.h"
#include "workshop/verbs.h"

namespace {

bool can_be_laid_out(const source &from)
{
    std::vector<fault> faults = faults_of_balance(from);
    if (!is_text(from.text) && faults.empty()) faults = {NOT_A_TEXT};
    print_faults(stderr, from, faults);
    return faults.empty();
}

int check_layout(const source &from, const std::string &wanted)
{
    if (wanted == from.text) return STATUS_GOOD;
    printf("%s\n", from.name.c_str());
    return STATUS_FAULT;
}

int lay_out(const CHR *path, bool only_check)
{
    source from;
    std::string why;
    if (!read_source(path, &from, &why)) return refused("kst fmt", why);
    if (!can_be_laid_out(from)) return STATUS_FAULT;
    const std::string wanted = laid_out(from.text);
    if (only_check) return check_layout(from, wanted);
    if (is_standard_stream(path))
        fwrite(wanted.data(), 1, wanted.size(), stdout);
    else if (wanted != from.text && !replace_file(path, wanted, &why))
        return refused("kst fmt", why);
    return STATUS_GOOD;
}

// All files are looked at; the worst status is the command's.
int fmt_verb_on(const request &asked)
{
    start_workshop();
    int status = STATUS_GOOD;
    for (const CHR *path : asked.operands)
        status = std::max(status, lay_out(path, asked.has("--check")));
    return status;
}

constexpr option options[] = {
    {"--check", "", "changes nothing; names the files whose layout is another one"},
};

} // namespace

const verb fmt_verb = {
    .name = "fmt",
    .operands = "FILE ...",
    .help = "lays programs out by one rule; FILE - goes from standard input to output",
    .options = options,
    .run = fmt_verb_on,
    .least = 1,
};
