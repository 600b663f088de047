// kst doc: what the manual says of a name.

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "workshop/manual.h"
#include "workshop/verbs.h"

namespace {

constexpr std::size_t WIDTH = 79;
constexpr int NO_COMMAND = 126; // and up: exit statuses of a shell that can't run one

// Lays words out in lines that are indented by two blanks.
void append_words(std::string *out, const std::vector<std::string_view> &words)
{
    std::size_t column = 0;
    for (const std::string_view word : words) {
        const bool begins_line = column == 0 || column + 1 + word.size() > WIDTH;
        if (begins_line && column > 0) out->append("\n");
        out->append(begins_line ? "  " : " ").append(word);
        column = begins_line ? 2 + word.size() : column + 1 + word.size();
    }
    out->append("\n");
}

std::string_view chapter_number(std::string_view line) { return line.substr(0, line.find('.')); }

// The instructions of a chapter of the reference; none for another chapter.
std::vector<std::string_view> instructions_of(const manual_entry &chapter)
{
    std::vector<std::string_view> names;
    for (const manual_entry &entry : manual_entries())
        if (entry.kind == entry_kind::INSTRUCTION &&
            chapter_number(entry.place) == chapter_number(chapter.place))
            names.insert(names.end(), entry.names.begin(), entry.names.end());
    return names;
}

std::string overview()
{
    std::string out, topics;
    for (const manual_entry &entry : manual_entries()) {
        if (!entry.is_chapter) continue;
        const std::vector<std::string_view> names = instructions_of(entry);
        if (names.empty()) {
            topics.append("  ").append(entry.place).append("\n");
            continue;
        }
        out.append(entry.names[1]).append("\n");
        append_words(&out, names);
    }
    std::vector<std::string_view> rows;
    for (const manual_entry &entry : manual_entries())
        if (entry.kind == entry_kind::ROW && !isdigit(entry.names[0][0]))
            rows.insert(rows.end(), entry.names.begin(), entry.names.end());
    out.append("Options and switches of the environment\n");
    append_words(&out, rows);
    out.append("Topics\n").append(topics);
    return out.append(
        "\nkst doc NAME tells more: of a name above, of an error code such as 11, of a\n"
        "chapter or section by its title or number, such as arrays, 7. or 7.3.\n");
}

bool is_longer_than_screen(const std::string &text)
{
    winsize size = {};
    if (!isatty(STDOUT_FILENO) || ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) return false;
    return size.ws_row > 0 && std::count(text.begin(), text.end(), '\n') >= size.ws_row;
}

void print_through_pager(const std::string &text)
{
    const char *pager = getenv("PAGER");
    FILE *to = popen(pager != nullptr && *pager != 0 ? pager : "less", "w");
    // A pager may be left before its end, and the interrupt key is its own.
    signal(SIGPIPE, SIG_IGN);
    signal(SIGINT, SIG_IGN);
    if (to != nullptr) fwrite(text.data(), 1, text.size(), to);
    const int status = to == nullptr ? -1 : pclose(to);
    const bool is_shown = status != -1 && (!WIFEXITED(status) || WEXITSTATUS(status) < NO_COMMAND);
    if (!is_shown) fwrite(text.data(), 1, text.size(), stdout);
}

int tell(const std::string &text)
{
    if (is_longer_than_screen(text))
        print_through_pager(text);
    else
        fwrite(text.data(), 1, text.size(), stdout);
    return STATUS_GOOD;
}

int tell_nothing_found(const std::string &name)
{
    fprintf(stderr, "kst doc: the manual has no `%s'%s\n", name.c_str(), hint_for(name).c_str());
    return STATUS_FAULT;
}

int run_verb_on(const request &asked)
{
    std::string name;
    for (const CHR *word : asked.operands) name.append(name.empty() ? "" : " ").append(word);
    if (name.empty()) return tell(overview());
    const std::string told = told_of(name);
    return told.empty() ? tell_nothing_found(name) : tell(told);
}

} // namespace

const verb doc_verb = {
    .name = "doc",
    .operands = "[NAME ...]",
    .help = "what the manual says of an instruction, option, switch, error code or topic",
    .options = {},
    .run = run_verb_on,
    .is_operand = [](std::string_view word) { return !find_in_manual(word).empty(); },
};
