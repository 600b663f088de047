// A unit whose instructions split their work over several threads:
//
//     (T_SUM numbers threads)         sum of the members of an array, as floats
//     (T_FOLD text threads)           the text with the letters of each line in upper case, blanks
//                                     packed to single ones
//     (T_EVAL text threads)           runs the text on each thread at once; how many agree with the
//                                     first about its value
//
// The program itself runs on one thread, and so do its operands: a handler evaluates them before it
// starts a thread, and its threads see values alone. Each thread calls the set-up at its start and
// the clean-up at its end; in between, strings, values and the error state are its own. Nothing
// locks: threads write to different variables and records, and share what they only read.

#include <kestrin/ckst_udf.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace {

enum : UCH { NO_MEMBER = 40, BAD_THREADS = 41, BAD_CODE = 42, NO_THREAD = 43 };

constexpr SLO most_threads = 64;

// -- A thread's share ----------------------------------------------------------------------------

// For the life of a thread. Declared first in its function, so that it ends last.
struct thread_blocks {
    thread_blocks() { setup_quarne_thread_safe_functionality_for_local_thread(); }
    ~thread_blocks() { cleanup_quarne_thread_safe_functionality_for_local_thread(); }
    thread_blocks(const thread_blocks &) = delete;
    thread_blocks &operator=(const thread_blocks &) = delete;
};

// What a thread hands back. An error belongs to the thread on which it came up, so code and text
// are taken along and raised again on the thread of the run.
struct share {
    DFL sum = 0.0;
    CHR *text = nullptr; // a heap block, which may change threads
    UCH error_code = 0;
    CHR *error_text = nullptr;

    share() = default;
    share(share &&other) noexcept
        : sum(other.sum), text(other.text), error_code(other.error_code),
          error_text(other.error_text)
    {
        other.text = other.error_text = nullptr;
    }
    ~share()
    {
        free_string(&text);
        free_string(&error_text);
    }
    share(const share &) = delete;
    share &operator=(const share &) = delete;

    void take_error()
    {
        if (noterror()) return;
        error_code = get_error_code();
        get_error_text(&error_text);
    }
};

void rise(UCH code, const char *what)
{
    CHR *text = nullptr;
    rise_error_info(code, get_std_buff(&text, what));
    free_string(&text);
}

template <class Work>
void start_threads(std::vector<std::thread> *threads, std::vector<share> *shares, const Work &work)
{
    for (share &mine : *shares)
        threads->emplace_back([&mine, &work, i = threads->size()] {
            const thread_blocks blocks;
            work(i, &mine);
            mine.take_error();
        });
}

// Runs `work` for each share on a thread of its own and waits for all. The first error found
// becomes the error of the run.
template <class Work> void run_shares(std::vector<share> *shares, const Work &work)
{
    std::vector<std::thread> threads;
    try {
        threads.reserve(shares->size());
        start_threads(&threads, shares, work);
    } catch (const std::system_error &) { // no exception may leave a handler
        rise(NO_THREAD, "Threads: no further thread can be started!");
    }
    for (std::thread &thread : threads) thread.join();
    for (const share &s : *shares)
        if (s.error_code != 0 && noterror()) rise_error_info(s.error_code, s.error_text);
}

// Shares for the number of threads that a program asks for; none, with an error, if it can't be.
std::vector<share> make_shares(SLO threads)
{
    if (threads < 1 || threads > most_threads) {
        rise(BAD_THREADS, "Threads: from 1 to 64 are possible!");
        return {};
    }
    return std::vector<share>(static_cast<std::size_t>(threads));
}

// Where share i of n begins among `count` things.
ULO begin_of(ULO i, ULO n, ULO count) { return count / n * i + std::min(i, count % n); }

// -- Members of an array -------------------------------------------------------------------------

DFL to_float(const kestrin_data &single)
{
    switch (single.type) {
    case 'I': return static_cast<DFL>(single.value.ival);
    case 'F': return single.value.fval;
    case 'S': return single.svalue == nullptr ? 0.0 : atof(single.svalue);
    default: return 0.0;
    }
}

// Whether member k holds a value. The places of an array are more than its members.
bool has_member(const kestrin_data &array, ULO k)
{
    if (k == 0) return array.type != 0;
    return array.arraytype == 0 ? array.array.mix[k].type != 0 : array.aready_tags[k] != 0;
}

DFL member_as_float(const kestrin_data &array, ULO k)
{
    if (k == 0) return to_float(array);
    switch (array.arraytype) {
    case 'I': return static_cast<DFL>(array.array.ival[k]);
    case 'F': return array.array.fval[k];
    case 'S': return atof(array.array.svalue[k]);
    case 'Z': return 0.0;
    default: return to_float(array.array.mix[k]);
    }
}

// Members up to the last one that is assigned.
ULO members_of(const kestrin_data &array)
{
    ULO count = array.single ? 1 : array.indices_numb;
    while (count > 0 && !has_member(array, count - 1)) count--;
    return count;
}

void sum_members(const kestrin_data &array, ULO from, ULO to, share *mine)
{
    for (ULO k = from; k < to; k++) {
        if (!has_member(array, k)) {
            rise(NO_MEMBER, ("T_Sum: no value in member " + std::to_string(k)).c_str());
            return;
        }
        mine->sum += member_as_float(array, k);
    }
}

// -- Lines of a text -----------------------------------------------------------------------------

std::vector<std::string> lines_of(const CHR *text)
{
    std::vector<std::string> lines(1);
    for (const CHR *c = text; c != text + len(text); c++) {
        if (*c == '\n')
            lines.emplace_back();
        else
            lines.back().push_back(*c);
    }
    return lines;
}

void fold_lines(const std::vector<std::string> &lines, ULO from, ULO to, share *mine)
{
    CHR *line = nullptr, *newline = nullptr;
    get_std_buff(&newline, "\n");
    for (ULO k = from; k < to; k++) {
        get_std_buff(&line, lines[k].c_str());
        cat(&mine->text, upper_utf8(&line, pack(&line, line)));
        if (k + 1 < lines.size()) cat(&mine->text, newline);
    }
    free_string(&line);
    free_string(&newline);
}

// -- Code on a thread ----------------------------------------------------------------------------

// A node of a string constant made by hand; evaluator.cpp says more about it.
std::vector<ULO> constant_node(const CHR *text)
{
    std::vector<ULO> node(2 + len(text) / 8 + 1, 0);
    node[0] = reinterpret_cast<ULO>(func__dummy_s);
    node[1] = len(text);
    memcpy(&node[2], text, len(text));
    return node;
}

// The node is only read and serves all threads; each has a machine of its own.
void run_code(const std::vector<ULO> &node, share *mine)
{
    const ULO operand_word = reinterpret_cast<ULO>(node.data());
    kestrin_data answer = owning_slot;
    func__mapcar(&operand_word, &answer);
    const kestrin_data *members = answer.array.mix;
    if (members[MAPCAR_SYNTAX_CODE].value.ival != 0)
        rise_error_info(BAD_CODE, members[MAPCAR_SYNTAX_TEXT].svalue);
    else if (members[MAPCAR_ERROR_CODE].value.ival != 0)
        rise_error_info(BAD_CODE, members[MAPCAR_ERROR_TEXT].svalue);
    mine->sum = to_float(members[MAPCAR_VALUE]);
    free_kst_data(&answer);
}

// -- Handlers ------------------------------------------------------------------------------------

void answer_integer(kestrin_data *ret_dat, SLO value)
{
    ret_dat->single = 1;
    ret_dat->type = 'I';
    ret_dat->value.ival = value;
}

DFL sum_in_shares(const kestrin_data &numbers, SLO threads)
{
    std::vector<share> shares = make_shares(threads);
    const ULO n = shares.size(), count = members_of(numbers);
    run_shares(&shares, [&](ULO i, share *mine) {
        sum_members(numbers, begin_of(i, n, count), begin_of(i + 1, n, count), mine);
    });
    DFL sum = 0.0;
    for (const share &s : shares) sum += s.sum;
    return sum;
}

// The array is wanted as a whole, so it isn't cast but evaluated as it comes. An owning slot makes
// it a copy: the threads look at it when the second operand, which might assign it, has been
// evaluated.
void t_sum(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    kestrin_data numbers = owning_slot;
    SLO threads = 0;
    ret_dat->disable_ptr = 1;
    eval_operand(dat_ptr, &numbers);
    ret_ival(dat_ptr + 1, &threads);
    if (noterror()) {
        const DFL sum = sum_in_shares(numbers, threads);
        if (noterror()) {
            ret_dat->single = 1;
            ret_dat->type = 'F';
            ret_dat->value.fval = sum;
        }
    }
    free_kst_data(&numbers);
}

void fold_in_shares(CHR **text, SLO threads)
{
    std::vector<share> shares = make_shares(threads);
    const std::vector<std::string> lines = lines_of(*text);
    const ULO n = shares.size(), count = lines.size();
    run_shares(&shares, [&](ULO i, share *mine) {
        fold_lines(lines, begin_of(i, n, count), begin_of(i + 1, n, count), mine);
    });
    equ(text, nullptr);
    for (const share &s : shares) cat(text, s.text);
}

void t_fold(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    CHR *text = nullptr;
    SLO threads = 0;
    ret_dat->disable_ptr = 1;
    ret_sval(dat_ptr, &text);
    ret_ival(dat_ptr + 1, &threads);
    if (noterror()) fold_in_shares(&text, threads);
    if (noterror()) {
        ret_dat->single = 1;
        ret_dat->type = 'S';
        std::swap(ret_dat->svalue, text); // the old string of the record is ours to free
    }
    free_string(&text);
}

SLO agreeing(const CHR *text, SLO threads)
{
    std::vector<share> shares = make_shares(threads);
    const std::vector<ULO> node = constant_node(text);
    run_shares(&shares, [&](ULO, share *mine) { run_code(node, mine); });
    return std::count_if(shares.begin(), shares.end(),
                         [&](const share &s) { return s.sum == shares.front().sum; });
}

void t_eval(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    CHR *text = nullptr;
    SLO threads = 0;
    ret_dat->disable_ptr = 1;
    ret_sval(dat_ptr, &text);
    ret_ival(dat_ptr + 1, &threads);
    if (noterror()) {
        const SLO count = agreeing(text, threads);
        if (noterror()) answer_integer(ret_dat, count);
    }
    free_string(&text);
}

const UCH float_and_integer[] = "FI", text_and_integer[] = "SI";

} // namespace

const INSTRUCTION_STRU INSTRUCTION_SET[] = {
    {"T_SUM", 2, 'F', float_and_integer, t_sum},
    {"T_FOLD", 2, 'S', text_and_integer, t_fold},
    {"T_EVAL", 2, 'I', text_and_integer, t_eval},
};
const ULO INSTRUCTIONS = sizeof INSTRUCTION_SET / sizeof INSTRUCTION_SET[0];
const CHR *VERSION_CKSTUDF___ = "Threads example v.1.0.0.";

void startup_callback() {}
void taskjob_end_callback(ULO) {}
void user_io_callback(SLO, CHR **) {}

int main(int argc, char **argv) { return _Main_(argc, argv); }
