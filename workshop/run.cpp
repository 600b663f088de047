// kst run: a program without reports, its words as they are, its faults by file, line and column,
// within limits if there are any.

#include "workshop/run.h"
#include "workshop/replace_file.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "driver/code.h"
#include "driver/precompiled.h"
#include "driver/prepare.h"
#include "driver/run.h"
#include "driver/source.h"
#include "frontend/forms.h"
#include "frontend/self_check.h"
#include "kestrin/strings.h"
#include "strings/scratch.h"
#include "vm/engine.h"
#include "vm/machine.h"
#include "workshop/limits.h"
#include "workshop/program.h"
#include "workshop/run_error.h"
#include "workshop/verbs.h"

namespace {

[[noreturn]] void end_with_faults(const source &from, const std::vector<fault> &faults)
{
    fflush(stdout);
    print_faults(stderr, from, faults);
    exit(STATUS_FAULT);
}

// Words of the program as those behind the file.
void set_words(session *s, const source &from, const std::vector<const CHR *> &words)
{
    static std::vector<CHR *> argv;
    argv = {s->argv[0], const_cast<CHR *>(from.name.c_str())};
    for (const CHR *word : words) argv.push_back(const_cast<CHR *>(word));
    s->argc = static_cast<int>(argv.size());
    s->first_arg_index = 1;
    argv.push_back(nullptr);
    s->argv = argv.data();
}

// The global functions of a source. Returns their profile, which errors of the run are told by.
source load_set(const program_call &called)
{
    const int status = load_functions(called.command, called.profile, end_with_faults);
    if (status != STATUS_GOOD) exit(status);
    source set;
    std::string why;
    const CHR *path = start_workshop().cfg_profile_path;
    if (path != nullptr) read_source(path, &set, &why);
    return set;
}

void prepare(session *s, const source &from, const run_hooks &hooks)
{
    static std::vector<code_place> set_places, program_places;
    s->set_places = &set_places;
    s->program_places = &program_places;
    program p;
    if (!check_program(from, &p, &the_engine.func_lut)) end_with_faults(from, p.faults);
    const ULO given = s->words_behind_file();
    if (p.arguments != given)
        end_with_faults(from,
                        {{{0, 0},
                          "takes " + std::to_string(p.arguments) + " word" +
                              (p.arguments == 1 ? "" : "s") + ", not " + std::to_string(given)}});
    s->program = std::move(p.parsed);
    if (hooks.arrange) hooks.arrange(&s->program);
    bind_terminal(s);
    if (given > 0) bind_exact_words(s);
    if (!is_one_form(s->program)) wrap_program(s);
    squeeze_program(s);
    prove_types(s);
    compile_global_functions(s);
    compile_program(s);
    link_all(s);
}

void prepare_stored(session *s, const source &from)
{
    load_precompiled(s, from.text);
    enter_instructions(&the_engine.func_lut);
    link_precompiled(s);
}

// Whether a report at a path would take the place of what the program comes from.
bool is_file_of(const program_call &called, const CHR *path)
{
    if (path == nullptr || is_standard_stream(path)) return false;
    const CHR *profile = start_workshop().cfg_profile_path;
    return is_same_file(path, called.from.name) ||
           (profile != nullptr && is_same_file(path, profile));
}

int run_verb_on(const request &asked)
{
    program_call called = {.command = "kst run"};
    limits wanted;
    std::string why;
    if (!read_program(asked, &called, &why)) return refused(called.command, why);
    if (asked.has("--limit") && !read_limits(asked.value("--limit"), &wanted, &why))
        return refused(called.command, why);
    wanted.no_files = asked.has("--no-files");
    wanted.no_environment = asked.has("--no-env");
    if (wanted.any()) begin_limits(wanted);
    run_source(called);
}

constexpr option options[] = {
    TEXT_OPTION,
    PROFILE_OPTION,
    {"--limit", "LIMITS", "as time=2,memory=64M,output=1M"},
    {"--no-files", "", "nothing but the standard streams"},
    {"--no-env", "", "an empty environment"},
};

} // namespace

void run_source(const program_call &called, const run_hooks &hooks)
{
    const source &from = called.from;
    session *s = &start_workshop();
    set_words(s, from, called.words);
    const bool is_stored = is_precompiled(from.text);
    const source set = is_stored ? source() : load_set(called);
    std::string why;
    if (!close_limits(&why)) exit(refused(called.command, why));
    if (is_stored)
        prepare_stored(s, from);
    else
        prepare(s, from, hooks);
    error_trail trail;
    rt_ctrl->rt_trail = &trail;
    rt_ctrl->rt_recursion = recursion::ENDS_RUN;
    begin_limited_run();
    if (hooks.run ? hooks.run(s, set) : run_to_end(s)) exit(STATUS_GOOD);
    fflush(stdout);
    if (!has_limit_ended_run()) print_runtime_error(stderr, *s, from, trail, set);
    exit(STATUS_FAULT);
}

bool read_program(const request &asked, program_call *called, std::string *why)
{
    called->words = asked.operands;
    called->profile = asked.value(PROFILE_OPTION.name);
    if (const CHR *text = asked.value(TEXT_OPTION.name); text != nullptr) {
        called->from = {"-e", text};
        return true;
    }
    called->words.erase(called->words.begin());
    return read_source(asked.operands[0], &called->from, why);
}

bool read_source_program(const request &asked, program_call *called, std::string *why)
{
    if (!read_program(asked, called, why)) return false;
    *why = "`" + called->from.name + "' is stored and tells no lines: its source is wanted";
    return !is_precompiled(called->from.text);
}

// Above the numbers that the program's own files get, which it may print or close.
FILE *open_report(const program_call &called, const CHR *path)
{
    constexpr int FIRST_DESCRIPTOR = 200;
    if (is_file_of(called, path))
        exit(refused(called.command, "`" + std::string(path) + "' is a file of the program"));
    const int opened = path == nullptr ? STDERR_FILENO
                       : is_standard_stream(path)
                           ? STDOUT_FILENO
                           : open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    const int moved = opened < 0 ? -1 : fcntl(opened, F_DUPFD_CLOEXEC, FIRST_DESCRIPTOR);
    if (opened > STDERR_FILENO && moved >= 0) close(opened);
    FILE *file = opened < 0 ? nullptr : fdopen(moved >= 0 ? moved : opened, "w");
    if (file == nullptr)
        exit(refused(called.command, "can't open `" +
                                         std::string(path == nullptr ? "standard error" : path) +
                                         "': " + strerror(errno)));
    setvbuf(file, nullptr, _IOLBF, BUFSIZ);
    return file;
}

bool finish_report(std::string_view command, FILE *file)
{
    errno = 0;
    if (fflush(file) == 0 && ferror(file) == 0) return true;
    fprintf(stderr, "%.*s: can't write all of the report%s%s\n", int(command.size()),
            command.data(), errno == 0 ? "" : ": ", errno == 0 ? "" : strerror(errno));
    return false;
}

const verb run_verb = {
    .name = "run",
    .operands = "FILE [WORD ...]",
    .help = "runs a program quietly and prints its value; FILE - is the standard input",
    .options = options,
    .run = run_verb_on,
    .least = 1,
    .passes_words = true,
    .first_operand = TEXT_OPTION.name,
};
