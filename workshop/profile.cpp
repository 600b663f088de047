// kst profile: what the functions and the lines of a program cost.

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <unistd.h>
#include <unordered_map>

#include "driver/run.h"
#include "vm/watch.h"
#include "workshop/origins.h"
#include "workshop/replace_file.h"
#include "workshop/run.h"
#include "workshop/sampler.h"
#include "workshop/verbs.h"

namespace {

// Times are in microseconds. A time as a whole counts what is called as well, recursion once.
struct cost {
    ULO own = 0, whole = 0;
    ULO counted = 0; // number of the last sample that `whole` has
};

struct function_cost : cost {
    std::string name;
    const source *file = nullptr;
    file_place at = {0, 0};
    ULO calls = 0;
};

struct line_cost : cost {
    const source *file = nullptr; // NULL: no line of a file
    ULO line = 0;
};

// Functions below the first ones of a stack are left out of folded stacks, but for the innermost.
constexpr ULO MOST_FOLDED = 500;

class costs {
public:
    costs(const session &s, const source &from, const source &set);

    // For the running program.
    ULO *counter(const ULO *image);

    // For the sampler.
    void add(const sample &taken);

    ULO whole() const { return whole_; }
    ULO samples() const { return samples_; }
    std::vector<const function_cost *> functions() const;
    std::vector<const line_cost *> lines() const;
    std::string folded() const;

private:
    // Functions as they call each other; the program itself is the first.
    struct path {
        function_cost *function;
        ULO outer, own;
    };
    function_cost *function_of(const ULO *image);
    line_cost *line_of(const ULO *node);
    void add_line(const sample &taken);
    void add_path(const sample &taken);
    ULO path_below(ULO outer, function_cost *function);
    void count_whole(cost *c, const sample &taken);

    origins known_;
    std::deque<function_cost> functions_; // the program, texts of MAPCAR, all others
    std::unordered_map<const ULO *, function_cost *> by_image_;
    std::map<std::pair<const source *, ULO>, line_cost> lines_;
    std::unordered_map<const ULO *, line_cost *> by_node_;
    std::vector<path> paths_;
    std::map<std::pair<ULO, function_cost *>, ULO> by_path_;
    ULO samples_ = 0, whole_ = 0;
};

costs::costs(const session &s, const source &from, const source &set) : known_(s, from, set)
{
    functions_.push_back({{}, "main", &from, {0, 0}, 0});
    functions_.push_back({{}, "(mapcar)", nullptr, {0, 0}, 0});
    by_image_[reinterpret_cast<const ULO *>(s.prog_text)] = &functions_[0];
    for (const function_origin &f : known_.functions()) {
        functions_.push_back({{}, f.name, f.file, f.at, 0});
        by_image_[f.image] = &functions_.back();
    }
    paths_.push_back({&functions_[0], 0, 0});
}

function_cost *costs::function_of(const ULO *image)
{
    const auto found = by_image_.find(image);
    return found == by_image_.end() ? &functions_[1] : found->second;
}

ULO *costs::counter(const ULO *image) { return &function_of(image)->calls; }

line_cost *costs::line_of(const ULO *node)
{
    const auto [place, is_new] = by_node_.try_emplace(node, nullptr);
    if (!is_new) return place->second;
    const origin from = known_.find(node);
    if (!from.is_known()) return nullptr;
    line_cost &line = lines_[{from.file, from.at.line}];
    line.file = from.file;
    line.line = from.at.line;
    return place->second = &line;
}

void costs::count_whole(cost *c, const sample &taken)
{
    if (c->counted == samples_) return;
    c->counted = samples_;
    c->whole += taken.microseconds;
}

// What stands in no line of a file, such as a text of MAPCAR, is its caller's.
void costs::add_line(const sample &taken)
{
    line_cost *own = taken.node == nullptr ? nullptr : line_of(taken.node);
    const ULO *last = nullptr;
    for (ULO i = 0; i < taken.count; i++) {
        const ULO *site = taken.calls()[i].site;
        if (site == last) continue; // a recursion
        last = site;
        line_cost *line = site == nullptr ? nullptr : line_of(site);
        if (line == nullptr) continue;
        if (own == nullptr) own = line;
        count_whole(line, taken);
    }
    if (own == nullptr) own = &lines_[{nullptr, 0}]; // ahead of all forms and behind them
    own->own += taken.microseconds;
    count_whole(own, taken);
}

ULO costs::path_below(ULO outer, function_cost *function)
{
    const auto [place, is_new] = by_path_.try_emplace({outer, function}, paths_.size());
    if (is_new) paths_.push_back({function, outer, 0});
    return place->second;
}

void costs::add_path(const sample &taken)
{
    ULO at = 0, left = MOST_FOLDED;
    const ULO *last = nullptr;
    function_cost *function = &functions_[0];
    for (ULO i = taken.count; i-- > 0;) {
        if (taken.calls()[i].image != last) {
            last = taken.calls()[i].image;
            function = function_of(last);
            count_whole(function, taken);
        }
        if (function == &functions_[0] || (left == 0 && i != 0)) continue;
        at = path_below(at, function);
        if (left != 0) left--;
    }
    paths_[at].own += taken.microseconds;
    paths_[at].function->own += taken.microseconds;
    count_whole(&functions_[0], taken);
}

void costs::add(const sample &taken)
{
    samples_++;
    whole_ += taken.microseconds;
    add_path(taken);
    add_line(taken);
}

template <class Row> void sort_by_cost(std::vector<const Row *> *rows)
{
    std::stable_sort(rows->begin(), rows->end(), [](const Row *a, const Row *b) {
        return std::pair(a->own, a->whole) > std::pair(b->own, b->whole);
    });
}

std::vector<const function_cost *> costs::functions() const
{
    std::vector<const function_cost *> called;
    for (const function_cost &f : functions_)
        if (f.calls != 0 || f.whole != 0) called.push_back(&f);
    sort_by_cost(&called);
    return called;
}

std::vector<const line_cost *> costs::lines() const
{
    std::vector<const line_cost *> all;
    for (const auto &[place, line] : lines_) all.push_back(&line);
    sort_by_cost(&all);
    return all;
}

// A name as one word of a folded stack.
std::string folded_name(std::string_view name)
{
    std::string word(name);
    for (CHR &byte : word)
        if (byte == ';' || static_cast<UCH>(byte) <= ' ' || byte == 127) byte = '_';
    return word;
}

std::string costs::folded() const
{
    std::vector<std::string> stacks;
    for (const path &p : paths_) {
        const std::string name = folded_name(p.function->name);
        stacks.push_back(stacks.empty() ? name : stacks[p.outer] + ";" + name);
    }
    std::string text;
    for (ULO i = 0; i < paths_.size(); i++)
        if (paths_[i].own != 0) text += stacks[i] + " " + std::to_string(paths_[i].own) + "\n";
    return text;
}

// -- The table ---------------------------------------------------------------------------------

void print_cost(FILE *stream, const cost &c, ULO whole)
{
    for (const ULO time : {c.own, c.whole})
        fprintf(stream, "%12.3f %5.1f", double(time) / 1000,
                100 * double(time) / double(std::max(whole, ULO(1))));
}

std::string place_text(const source *file, ULO line)
{
    if (file == nullptr) return "";
    return line == 0 ? file->name : file->name + ":" + std::to_string(file->number_of(line));
}

void print_functions(FILE *stream, const costs &all)
{
    fprintf(stream, "%12s%12s %5s%12s %5s  function\n", "calls", "own ms", "%", "whole ms", "%");
    for (const function_cost *f : all.functions()) {
        fprintf(stream, "%12lu", f->calls);
        print_cost(stream, *f, all.whole());
        const std::string name = plain(f->name), place = plain(place_text(f->file, f->at.line));
        fprintf(stream, place.empty() ? "  %s\n" : "  %-16s %s\n", name.c_str(), place.c_str());
    }
}

// The text of a line as far as it tells which one it is.
std::string line_text(const line_cost &l)
{
    constexpr ULO MOST = 60;
    if (l.file == nullptr) return "outside of all lines";
    const auto lines = l.file->lines();
    std::string_view text = l.line <= lines.size() ? lines[l.line - 1] : "";
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    return plain(shortened(text, MOST));
}

void print_lines(FILE *stream, const costs &all, ULO most)
{
    const auto lines = all.lines();
    fprintf(stream, "\n%12s %5s%12s %5s  line\n", "own ms", "%", "whole ms", "%");
    cost others;
    for (ULO i = 0; i < lines.size(); i++) {
        const line_cost &l = *lines[i];
        others.own += i < most ? 0 : l.own;
        if (i >= most) continue;
        print_cost(stream, l, all.whole());
        const std::string place = plain(place_text(l.file, l.line));
        fprintf(stream, "  %s%s%s\n", place.c_str(), place.empty() ? "" : "  ",
                line_text(l).c_str());
    }
    const ULO left_out = lines.size() - std::min<ULO>(lines.size(), most);
    if (left_out > 0)
        fprintf(stream, "%12.3f %24s  in %lu more lines\n", double(others.own) / 1000, "",
                left_out);
}

// -- The verb ----------------------------------------------------------------------------------

constexpr ULO USUAL_LINES = 20, MOST_LINES = 1000000;

struct report {
    costs *counted = nullptr;
    FILE *table = nullptr, *folded = nullptr;
    ULO lines = USUAL_LINES;
    std::atomic<bool> is_done = false;
};
report *the_report = nullptr; // for good: the process may end at any point

bool print_report()
{
    if (the_report->is_done.exchange(true)) return true;
    const costs &all = *the_report->counted;
    FILE *table = the_report->table;
    fprintf(table, "kst profile: %.3f ms, %lu samples\n\n", double(all.whole()) / 1000,
            all.samples());
    print_functions(table, all);
    print_lines(table, all, the_report->lines);
    bool is_whole = finish_report("kst profile", table);
    if (FILE *folded = the_report->folded; folded != nullptr) {
        fputs(all.folded().c_str(), folded);
        is_whole = finish_report("kst profile", folded) && is_whole;
    }
    return is_whole;
}

constexpr call_watcher counting = {
    [](const ULO *image) { return the_report->counted->counter(image); }, nullptr, nullptr};

bool run_profiled(session *s, const source &from, const source &set)
{
    the_report->counted = new costs(*s, from, set);
    const bool is_sampled = start_sampling(
        [](const sample &taken) { the_report->counted->add(taken); }, [] { print_report(); });
    if (!is_sampled) {
        fputs("kst profile: the system gives no timer, thread or memory for it\n", stderr);
        exit(STATUS_MISUSE);
    }
    atexit([] {
        stop_sampling();
        fflush(stdout); // what the program has written stands ahead
        if (!print_report()) _exit(STATUS_MISUSE);
    });
    const bool done = run_to_end(s);
    stop_sampling();
    return done;
}

void open_reports(const program_call &called, const CHR *table, const CHR *folded)
{
    the_report->table = open_report(called, table);
    if (folded == nullptr) return;
    if (table != nullptr && (!strcmp(folded, table) || is_same_file(folded, table)))
        exit(refused(called.command, "the table and the stacks want files of their own"));
    the_report->folded = open_report(called, folded);
}

int run_profile(const request &asked)
{
    program_call called = {.command = "kst profile"};
    std::string why;
    the_report = new report;
    if (!read_number(asked, "--lines", MOST_LINES, &the_report->lines))
        return refused(called.command, "`--lines' wants a number from 1 to 1000000");
    if (!read_source_program(asked, &called, &why)) return refused(called.command, why);
    the_engine.watcher = &counting;
    run_source(called, {.run = [&](session *s, const source &set) {
                   open_reports(called, asked.value("-o"), asked.value("--folded"));
                   return run_profiled(s, called.from, set);
               }});
}

constexpr option options[] = {
    {"-o", "FILE", "the table goes there and not to the standard error"},
    {"--folded", "FILE", "stacks of functions with their microseconds, for flame graphs"},
    {"--lines", "N", "so many lines at most; else 20"},
    TEXT_OPTION,
    PROFILE_OPTION,
};

} // namespace

const verb profile_verb = {
    .name = "profile",
    .operands = "FILE [WORD ...]",
    .help = "runs a program and tells what its functions and lines cost",
    .options = options,
    .run = run_profile,
    .least = 1,
    .passes_words = true,
    .first_operand = TEXT_OPTION.name,
};
