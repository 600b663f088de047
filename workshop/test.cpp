// kst test: programs that say in comments what they do.

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <unistd.h>

#include "driver/precompiled.h"
#include "workshop/expect.h"
#include "workshop/program.h"
#include "workshop/replace_file.h"
#include "workshop/test_report.h"
#include "workshop/verbs.h"

namespace {

namespace fs = std::filesystem;

constexpr ULO MOST_JOBS = 50, USUAL_SECONDS = 10, MOST_SECONDS = 86400;

struct test_run {
    std::vector<trial> trials;
    std::vector<std::vector<expectation>> said; // by each of them
};

// Programs in a folder and those in it, but not in hidden ones.
std::vector<std::string> programs_below(const CHR *folder)
{
    std::vector<std::string> found;
    std::error_code error;
    fs::recursive_directory_iterator at(folder, fs::directory_options::skip_permission_denied,
                                        error);
    for (; !error && at != fs::recursive_directory_iterator(); at.increment(error)) {
        const std::string name = at->path().filename();
        if (name.starts_with('.') && at->is_directory(error)) at.disable_recursion_pending();
        if (name.ends_with(".kst") && at->is_regular_file(error))
            found.push_back(at->path().lexically_normal());
    }
    std::sort(found.begin(), found.end());
    return found;
}

// Adds a program that says what it does. False with the reason for one that can't be read.
bool add_program(test_run *run, const CHR *path, bool *is_test, std::string *why)
{
    trial t = {};
    if (!read_source(path, &t.from, why)) return false;
    std::vector<expectation> all;
    if (!is_precompiled(t.from.text)) all = expectations_of(t.from);
    *is_test = says(all, said::OUTPUT) || says(all, said::VALUE) || says(all, said::ERROR);
    if (!*is_test) return true;
    t.input = text_of(all, said::INPUT);
    take_words(all, &t.words);
    for (const expectation &e : all)
        if (e.what == said::VALUE) t.watched.push_back(e.form);
    run->trials.push_back(std::move(t));
    run->said.push_back(std::move(all));
    return true;
}

bool add_path(test_run *run, const CHR *path, std::string *why)
{
    bool is_test = false;
    std::error_code error;
    if (fs::is_directory(path, error)) {
        *why = "can't read `" + std::string(path) + "': " + strerror(EACCES);
        if (access(path, R_OK | X_OK) != 0) return false;
        for (const std::string &file : programs_below(path))
            if (!add_program(run, file.c_str(), &is_test, why)) return false;
        return true;
    }
    if (!add_program(run, path, &is_test, why)) return false;
    if (!is_test) *why = "`" + std::string(path) + "' has no comment `# expect:' or `# error:'";
    return is_test;
}

// A program's comments are put right; what they can't say remains a difference.
std::vector<std::string> update(const trial &t, const std::vector<expectation> &all,
                                const outcome &done)
{
    if (!can_be_told(all, done)) return differences(t, all, done);
    source now = {t.from.name, updated(t.from.text, all, done)};
    std::string why;
    if (now.text != t.from.text && !replace_file(t.from.name.c_str(), now.text, &why))
        return {now.name + ": " + why};
    return differences(t, expectations_of(now), done);
}

// What the standard output gets.
telling telling_of(const request &asked)
{
    const CHR *junit = asked.value("--junit");
    if (junit != nullptr && is_standard_stream(junit)) return telling::JUNIT;
    return asked.has("--tap") ? telling::TAP : telling::PLAIN;
}

int run_tests(const request &asked, const test_run &run, ULO jobs, ULO seconds)
{
    test_report report(telling_of(asked), run.trials.size());
    const bool updates = asked.has("--update");
    report.begin();
    run_trials(run.trials, jobs, seconds, [&](ULO number, const outcome &done) {
        const trial &t = run.trials[number];
        const std::vector<expectation> &all = run.said[number];
        report.add(number, {t.from.name, updates ? update(t, all, done) : differences(t, all, done),
                            done.seconds});
    });
    report.end();
    const CHR *junit = asked.value("--junit");
    if (junit != nullptr && !report.write_junit(junit))
        return refused("kst test", "can't write `" + std::string(junit) + "': " + strerror(errno));
    return report.failed() == 0 ? STATUS_GOOD : STATUS_FAULT;
}

int test_verb_on(const request &asked)
{
    ULO jobs = std::min(static_cast<ULO>(std::max(sysconf(_SC_NPROCESSORS_ONLN), 1L)), MOST_JOBS);
    ULO seconds = USUAL_SECONDS;
    if (!read_number(asked, "--jobs", MOST_JOBS, &jobs))
        return refused("kst test", "`--jobs' wants a number from 1 to 50");
    if (!read_number(asked, "--timeout", MOST_SECONDS, &seconds))
        return refused("kst test", "`--timeout' wants seconds from 1 to 86400");
    if (asked.has("--tap") && telling_of(asked) == telling::JUNIT)
        return refused("kst test", "`--tap' and `--junit -' want the same output");
    start_workshop();
    test_run run;
    std::string why;
    std::vector<const CHR *> paths = asked.operands;
    if (paths.empty()) paths.push_back(".");
    for (const CHR *path : paths)
        if (!add_path(&run, path, &why)) return refused("kst test", why);
    if (run.trials.empty())
        return refused("kst test", "no program has a comment `# expect:' or `# error:'");
    return run_tests(asked, run, jobs, seconds);
}

constexpr option options[] = {
    {"--update", "", "puts the comments right in place"},
    {"--tap", "", "tells the results as TAP"},
    {"--junit", "FILE", "writes the results to FILE in the form of JUnit"},
    {"--jobs", "N", "programs that run at a time; else one a processor"},
    {"--timeout", "S", "seconds that a program may take; else 10"},
};

} // namespace

const verb test_verb = {
    .name = "test",
    .operands = "[PATH ...]",
    .help = "runs programs that say what they do in comments; of a folder all, without PATH of "
            "this one",
    .options = options,
    .run = test_verb_on,
};
