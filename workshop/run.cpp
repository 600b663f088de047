// kst run: a program without reports, its words as they are, its faults by file, line and column.

#include "workshop/run.h"

#include <cstdlib>

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
#include "workshop/program.h"
#include "workshop/trace.h"
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

void prepare(session *s, const source &from, const CHR *profile,
             const std::function<void(tree *)> &arrange)
{
    static std::vector<code_place> set_places, program_places;
    s->set_places = &set_places;
    s->program_places = &program_places;
    const int status = load_functions("kst run", profile, end_with_faults);
    if (status != STATUS_GOOD) exit(status);
    program p;
    if (!check_program(from, &p, &the_engine.func_lut)) end_with_faults(from, p.faults);
    const ULO given = s->words_behind_file();
    if (p.arguments != given)
        end_with_faults(from,
                        {{{0, 0},
                          "takes " + std::to_string(p.arguments) + " word" +
                              (p.arguments == 1 ? "" : "s") + ", not " + std::to_string(given)}});
    s->program = std::move(p.parsed);
    if (arrange) arrange(&s->program);
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

int run_verb_on(const request &asked)
{
    source from;
    std::string why;
    const CHR *text = asked.value("-e");
    std::vector<const CHR *> words = asked.operands;
    if (text != nullptr)
        from = {"-e", text};
    else if (read_source(words[0], &from, &why))
        words.erase(words.begin());
    else
        return refused("kst run", why);
    run_source(from, words, asked.value("--cfg"));
}

constexpr option options[] = {
    {"-e", "TEXT", "the program is TEXT; all that follows are its words"},
    PROFILE_OPTION,
};

} // namespace

void run_source(const source &from, const std::vector<const CHR *> &words, const CHR *profile,
                const std::function<void(tree *)> &arrange)
{
    session *s = &start_workshop();
    set_words(s, from, words);
    if (is_precompiled(from.text))
        prepare_stored(s, from);
    else
        prepare(s, from, profile, arrange);
    error_trail trail;
    rt_ctrl->rt_trail = &trail;
    rt_ctrl->rt_recursion = recursion::ENDS_RUN;
    if (run_to_end(s)) exit(STATUS_GOOD);
    fflush(stdout);
    print_runtime_error(stderr, *s, from, trail);
    exit(STATUS_FAULT);
}

const verb run_verb = {
    .name = "run",
    .operands = "FILE [WORD ...]",
    .help = "runs a program quietly and prints its value; FILE - is the standard input",
    .options = options,
    .run = run_verb_on,
    .least = 1,
    .passes_words = true,
    .first_operand = "-e",
};
