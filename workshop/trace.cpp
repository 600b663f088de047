// kst trace: the calls of a program's functions, with what goes in and what comes out.

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <memory>
#include <unistd.h>
#include <unordered_map>
#include <unordered_set>

#include "driver/run.h"
#include "strings/scratch.h"
#include "vm/watch.h"
#include "workshop/origins.h"
#include "workshop/run.h"
#include "workshop/verbs.h"

namespace {

constexpr ULO MOST_BYTES = 40;    // of a text that is shown
constexpr ULO MOST_ARGUMENTS = 8; // of a call

// -- Values ------------------------------------------------------------------------------------

bool is_control(CHR byte) { return static_cast<UCH>(byte) < ' ' || byte == 127; }

std::string shown_text(std::string_view text)
{
    std::string shown = "\"";
    for (const CHR byte : beginning(text, MOST_BYTES)) {
        CHR hexadecimal[8];
        snprintf(hexadecimal, sizeof hexadecimal, "\\0x%02x", unsigned(static_cast<UCH>(byte)));
        if (byte == '\n')
            shown += "\\n";
        else if (byte == '"' || byte == '\\')
            shown += {'\\', byte};
        else
            shown += is_control(byte) ? hexadecimal : std::string(1, byte);
    }
    return shown + (text.size() > MOST_BYTES ? "\"..." : "\"");
}

std::string shown_float(DFL value)
{
    CHR digits[32];
    const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    std::string shown(digits, end);
    if (std::all_of(shown.begin(), shown.end(), [](UCH c) { return isdigit(c) || c == '-'; }))
        shown += ".0";
    return shown;
}

std::string shown_value(const kestrin_data &value)
{
    if (!value.single) return "[" + std::to_string(value.indices_numb) + " places]";
    switch (value.type) {
    case 'I': return std::to_string(value.value.ival);
    case 'F': return shown_float(value.value.fval);
    case 'S': return shown_text(view(value.svalue));
    case 'Z': return "NIL";
    default: return "nothing";
    }
}

// -- What is traced ----------------------------------------------------------------------------

constexpr ULO USUAL_DEPTH = 20, USUAL_CALLS = 1000, MOST = 1000000000;

struct limits {
    ULO depth = USUAL_DEPTH, calls = USUAL_CALLS;
    std::unordered_set<std::string> only; // none: all functions
};

class tracer {
public:
    tracer(const limits &limit, FILE *out) : limit_(limit), out_(out) {}
    void begin(const session &s, const source &from, const source &set);
    void enter(const call_record &call);
    void leave(const kestrin_data &answer);
    void finish();

private:
    bool is_wanted(const call_record &call);
    std::string text_of(const call_record &call) const;
    void print(const std::string &end);
    void print_waiting();

    limits limit_;
    FILE *out_;
    std::unique_ptr<origins> known_;
    std::unordered_map<const ULO *, std::string> names_;
    std::vector<bool> is_shown_;     // of all calls that go on
    std::vector<std::string> shown_; // the texts of those that are
    bool is_waiting_ = false;        // the last of them for its line
    ULO calls_ = 0, too_deep_ = 0, too_many_ = 0;
};

void tracer::begin(const session &s, const source &from, const source &set)
{
    known_ = std::make_unique<origins>(s, from, set);
    for (function_origin &f : known_->functions()) names_[f.image] = std::move(f.name);
    for (const std::string &name : limit_.only)
        if (std::none_of(names_.begin(), names_.end(),
                         [&name](const auto &known) { return known.second == name; }))
            exit(refused("kst trace", "there is no function `" + plain(name) + "'"));
}

// Functions of MAPCAR's texts have no names here.
bool tracer::is_wanted(const call_record &call)
{
    const auto found = names_.find(call.image);
    if (call.outer == nullptr || found == names_.end()) return false;
    if (!limit_.only.empty() && !limit_.only.contains(found->second)) return false;
    ULO *left_out = shown_.size() >= limit_.depth ? &too_deep_
                    : calls_ >= limit_.calls      ? &too_many_
                                                  : nullptr;
    if (left_out != nullptr) ++*left_out;
    return left_out == nullptr;
}

// "file:line: (NAME ARGUMENT ...)", indented.
std::string tracer::text_of(const call_record &call) const
{
    const origin at = call.site == nullptr ? origin() : known_->find(call.site);
    std::string text = "(mapcar)";
    if (at.is_known()) text = plain(at.file->name) + ":" + std::to_string(at.line());
    text += ": " + std::string(2 * shown_.size(), ' ') + "(" + names_.at(call.image);
    const ULO arguments = std::min(image_arguments(call.image), image_slots(call.image));
    for (ULO i = 0; i < std::min(arguments, MOST_ARGUMENTS); i++)
        text += " " + shown_value(call.frame[i]);
    return text + (arguments > MOST_ARGUMENTS ? " ...)" : ")");
}

void tracer::print(const std::string &end)
{
    fflush(stdout); // what the program has written by now stands ahead
    fprintf(out_, "%s%s\n", shown_.back().c_str(), end.c_str());
    is_waiting_ = false;
    if (ferror(out_)) finish(); // nobody reads it any more
}

void tracer::print_waiting()
{
    if (is_waiting_) print("");
}

void tracer::enter(const call_record &call)
{
    const bool is_shown = is_wanted(call);
    is_shown_.push_back(is_shown);
    if (!is_shown) return;
    print_waiting();
    shown_.push_back(text_of(call));
    is_waiting_ = true;
    calls_++;
}

std::string shown_end(const kestrin_data &answer)
{
    if (rt_ctrl->rt_noterror) return " = " + shown_value(answer);
    switch (rt_ctrl->rt_error_code) {
    case UNWIND_BREAK: return " = \"\"";
    case UNWIND_EXIT: return " ends by EXIT";
    default: return " ends by error " + std::to_string(rt_ctrl->rt_error_code);
    }
}

void tracer::leave(const kestrin_data &answer)
{
    const bool was_shown = is_shown_.back();
    is_shown_.pop_back();
    if (!was_shown) return;
    print(shown_end(answer));
    shown_.pop_back();
}

void tracer::finish()
{
    if (out_ == nullptr) return;
    print_waiting();
    if (too_deep_ != 0)
        fprintf(out_, "kst trace: %lu calls deeper than %lu are left out (--depth)\n", too_deep_,
                limit_.depth);
    if (too_many_ != 0)
        fprintf(out_, "kst trace: %lu calls behind the first %lu are left out (--calls)\n",
                too_many_, limit_.calls);
    FILE *out = std::exchange(out_, nullptr);
    if (!finish_report("kst trace", out)) _exit(STATUS_MISUSE);
}

tracer *the_tracer = nullptr; // for good: the process may end at any point

constexpr call_watcher tracing = {
    [](const ULO *) {
        static ULO calls; // that nobody asks for
        return &calls;
    },
    [](const call_record &call) { the_tracer->enter(call); },
    [](const call_record &, const kestrin_data *answer) { the_tracer->leave(*answer); },
};

bool run_traced(session *s, const source &from, const source &set)
{
    the_engine.native = nullptr; // its calls of numbers have no frames
    the_tracer->begin(*s, from, set);
    atexit([] { the_tracer->finish(); });
    const bool done = run_to_end(s);
    the_tracer->finish();
    return done;
}

// -- The verb ----------------------------------------------------------------------------------

std::unordered_set<std::string> names_in(std::string_view list)
{
    std::unordered_set<std::string> names;
    while (!list.empty()) {
        const ULO end = std::min(list.find(','), list.size());
        std::string name(list.substr(0, end));
        for (CHR &c : name) c = static_cast<CHR>(toupper(static_cast<UCH>(c)));
        if (!name.empty()) names.insert(name);
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    return names;
}

int run_trace(const request &asked)
{
    program_call called = {.command = "kst trace"};
    limits limit;
    std::string why;
    for (const auto &[name, number] :
         {std::pair("--depth", &limit.depth), {"--calls", &limit.calls}})
        if (!read_number(asked, name, MOST, number))
            return refused(called.command,
                           "`" + std::string(name) + "' wants a number from 1 to 1000000000");
    if (const CHR *names = asked.value("--only"); names != nullptr) {
        limit.only = names_in(names);
        if (limit.only.empty()) return refused(called.command, "`--only' wants names");
    }
    if (!read_source_program(asked, &called, &why)) return refused(called.command, why);
    the_engine.watcher = &tracing;
    run_source(called, {.run = [&](session *s, const source &set) {
                   the_tracer = new tracer(limit, open_report(called, asked.value("-o")));
                   return run_traced(s, called.from, set);
               }});
}

constexpr option options[] = {
    {"--depth", "N", "calls in calls, so many at most; else 20"},
    {"--calls", "N", "so many calls at most; else 1000"},
    {"--only", "NAMES", "calls of these functions alone; commas between them"},
    {"-o", "FILE", "the calls go there and not to the standard error"},
    TEXT_OPTION,
    PROFILE_OPTION,
};

} // namespace

const verb trace_verb = {
    .name = "trace",
    .operands = "FILE [WORD ...]",
    .help = "runs a program and tells the calls of its functions",
    .options = options,
    .run = run_trace,
    .least = 1,
    .passes_words = true,
    .first_operand = TEXT_OPTION.name,
};
