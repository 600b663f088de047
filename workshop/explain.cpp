// kst explain: what the stages make of each line of a program.

#include <algorithm>
#include <sys/ioctl.h>
#include <unistd.h>

#include "driver/code.h"
#include "driver/prepare.h"
#include "driver/source.h"
#include "frontend/forms.h"
#include "kestrin/strings.h"
#include "vm/image.h"
#include "workshop/program.h"
#include "workshop/verbs.h"

namespace {

// -- A tree, line by line ----------------------------------------------------------------------

// What a tree holds of each line of the source, from 1. What came from elsewhere is left out.
class lines_of_tree {
public:
    lines_of_tree(const tree &t, const source &from) : tree_(t), source_(from.lines())
    {
        write(t.root);
    }
    std::string line(ULO number) const
    {
        return number < lines_.size() ? lines_[number] : std::string();
    }

private:
    void write(node_index n);
    void add(std::string_view piece);
    std::string &here();

    const tree &tree_;
    const std::vector<std::string_view> source_;
    std::vector<std::string> lines_;
    ULO line_ = 0; // that is written to
};

// A line begins as deep as that of the source.
std::string &lines_of_tree::here()
{
    if (line_ >= lines_.size()) lines_.resize(line_ + 1);
    std::string &text = lines_[line_];
    if (text.empty()) {
        const std::string_view line = source_[line_ - 1];
        text.append(line.substr(0, std::min(line.find_first_not_of(" \t"), line.size())));
    }
    return text;
}

void lines_of_tree::add(std::string_view piece)
{
    std::string &text = here();
    if (!text.empty() && text.back() != ' ' && text.back() != '\t') text.push_back(' ');
    text.append(piece);
}

void lines_of_tree::write(node_index n)
{
    const node &one = tree_.nodes[n];
    const ULO line = tree_.place_of(one).line;
    if (line != 0) line_ = line;
    std::string text;
    if (one.letter != 'U') {
        tree_.write(n, &text);
        if (line != 0) add(text);
        return;
    }
    text = "(" + std::string(one.name == NO_NAME ? "" : names().text(one.name));
    if (one.suffix != 0) text.append("@").push_back(one.suffix);
    if (line != 0) add(text);
    for (node_index i = one.first; i != NO_NODE; i = tree_.nodes[i].next) write(i);
    if (line != 0) here().push_back(')');
}

// -- The stages --------------------------------------------------------------------------------

struct code_line {
    ULO line;
    std::string text;
};

struct explanation {
    std::vector<std::pair<const CHR *, lines_of_tree>> stages; // the last is what is compiled
    std::vector<code_line> code;                               // by line and offset
    ULO words = 0, bytes = 0;
};

// The nodes of the bytecode: their offsets, code letters and words.
std::vector<code_line> lines_of_code(const session &s, const std::vector<code_place> &places)
{
    std::vector<code_line> lines;
    const ULO *code = reinterpret_cast<const ULO *>(s.prog_text);
    for (const code_place &place : places) {
        const node &n = s.program.nodes[place.node];
        const ULO line = s.program.place_of(n).line;
        if (line == 0) continue;
        std::string text = std::to_string(place.word * sizeof(ULO));
        text.insert(0, text.size() < 7 ? 7 - text.size() : 0, ' ');
        text.append(" ").push_back(image::letter_of(code[place.word]));
        text.append(" ").append(s.program.token_of(n));
        if (n.suffix != 0) text.append("@").push_back(n.suffix);
        lines.push_back({line, text});
    }
    std::stable_sort(lines.begin(), lines.end(),
                     [](const code_line &a, const code_line &b) { return a.line < b.line; });
    return lines;
}

explanation explain(program checked, const source &from)
{
    explanation told;
    session *s = &start_workshop();
    std::vector<code_place> places;
    s->program_places = &places;
    s->program = std::move(checked.parsed);
    told.words = checked.arguments;
    told.stages.emplace_back("checked", lines_of_tree(s->program, from));
    bind_terminal(s);
    if (!is_one_form(s->program)) wrap_program(s);
    squeeze_program(s);
    told.stages.emplace_back("squeezed", lines_of_tree(s->program, from));
    prove_types(s);
    told.stages.emplace_back("typed", lines_of_tree(s->program, from));
    compile_program(s);
    told.bytes = len(s->prog_text);
    told.code = lines_of_code(*s, places);
    return told;
}

// -- How they are shown ------------------------------------------------------------------------

ULO width_of_output()
{
    winsize window = {};
    const bool is_known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) == 0 && window.ws_col >= 40;
    return is_known ? window.ws_col : 100;
}

void print_row(const std::string &left, const std::string &right, ULO width)
{
    fputs(plain(left).c_str(), stdout);
    if (right.empty()) return void(putchar('\n'));
    if (left.size() > width) putchar('\n');
    const ULO gap = left.size() > width ? width : width - left.size();
    printf("%*s | %s\n", int(gap), "", plain(right).c_str());
}

// The stages that have changed a line, one below the other.
void print_stages(const explanation &told, ULO line)
{
    std::string before;
    for (const auto &[name, lines] : told.stages) {
        const std::string text = lines.line(line);
        if (text != before)
            printf("%14s |%s%s\n", name, text.empty() ? "" : " ", plain(text).c_str());
        before = text;
    }
}

void print_line(std::string_view text, const explanation &told, ULO line, bool all, ULO width)
{
    std::string number = std::to_string(line);
    number.insert(0, number.size() < 4 ? 4 - number.size() : 0, ' ');
    if (!text.empty()) number.append("  ").append(text);
    print_row(number, all ? std::string() : told.stages.back().second.line(line), width);
    if (all) print_stages(told, line);
}

void print_explanation(const source &from, const explanation &told, const request &asked)
{
    ULO code = 0, longest = 0;
    std::vector<std::string_view> lines = from.lines();
    if (lines.back().empty()) lines.pop_back();
    for (const std::string_view line : lines) longest = std::max(longest, line.size());
    const ULO width = std::min(longest + 6, width_of_output() / 2);
    printf("%s: %lu word%s, %lu bytes of code\n", from.name.c_str(), told.words,
           told.words == 1 ? "" : "s", told.bytes);
    for (ULO line = 1; line <= lines.size(); line++) {
        print_line(lines[line - 1], told, line, asked.has("--all"), width);
        for (; code < told.code.size() && told.code[code].line <= line; code++)
            if (asked.has("--code")) printf("%s\n", told.code[code].text.c_str());
    }
}

int run_explain(const request &asked)
{
    source from;
    std::string why;
    if (!read_source(asked.operands[0], &from, &why)) return refused("kst explain", why);
    const auto tell = [](const source &of, const std::vector<fault> &faults) {
        print_faults(stderr, of, faults);
    };
    const int status = load_functions("kst explain", asked.value("--cfg"), tell);
    if (status != STATUS_GOOD) return status;
    known_functions known;
    program p;
    if (!check_program(from, &p, &known.table)) {
        tell(from, p.faults);
        return STATUS_FAULT;
    }
    print_explanation(from, explain(std::move(p), from), asked);
    return STATUS_GOOD;
}

constexpr option options[] = {
    {"--all", "", "each stage that changes a line, instead of the last"},
    {"--code", "", "below each line the nodes of its bytecode, with their offsets"},
    PROFILE_OPTION,
};

} // namespace

const verb explain_verb = {
    .name = "explain",
    .operands = "FILE",
    .help = "shows what the compiler makes of each line of a program, and runs nothing",
    .options = options,
    .run = run_explain,
    .least = 1,
    .most = 1,
};
