// The editor is libedit. It is told of an interrupt by the end of its input, as its own handling of
// signals would end the process.

#include "workshop/line_reader.h"

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "workshop/edit_library.h"
#include "workshop/interrupt.h"

namespace {

constexpr int MOST_LINES = 1000; // of the history

const edit_library *library = nullptr;

// The folders of a path, only for their owner where they are new.
void make_folders(const std::string &path)
{
    for (auto end = path.find('/', 1); end != path.npos; end = path.find('/', end + 1))
        mkdir(path.substr(0, end).c_str(), 0700);
}

// Whether it can hold lines: a pipe or a device would keep the prompt waiting.
bool is_file_or_none(const std::string &path)
{
    struct stat about = {};
    return stat(path.c_str(), &about) != 0 || S_ISREG(about.st_mode);
}

// Empty if the environment names no place.
std::string path_of_history()
{
    const char *data = getenv("XDG_DATA_HOME"), *home = getenv("HOME");
    if (data != nullptr && *data == '/') return std::string(data) + "/kst/history";
    if (home != nullptr && *home != 0) return std::string(home) + "/.local/share/kst/history";
    return {};
}

FILE *open_private(const std::string &path, int flags, const char *mode)
{
    const int file = open(path.c_str(), flags | O_CREAT | O_CLOEXEC, 0600);
    return file < 0 ? nullptr : fdopen(file, mode);
}

void write_line(FILE *file, std::string_view line)
{
    fwrite(line.data(), 1, line.size(), file);
    putc('\n', file);
}

std::vector<std::string> read_lines(const std::string &path)
{
    std::vector<std::string> lines;
    FILE *file = fopen(path.c_str(), "re");
    if (file == nullptr) return lines;
    char *line = nullptr;
    size_t room = 0;
    for (ssize_t size; (size = getline(&line, &room, file)) > 0;)
        lines.emplace_back(line, static_cast<size_t>(size - (line[size - 1] == '\n')));
    free(line);
    fclose(file);
    return lines;
}

std::string common_begin(const std::vector<std::string> &words)
{
    std::string common = words[0];
    for (const std::string &word : words) {
        const auto differ = std::mismatch(common.begin(), common.end(), word.begin(), word.end());
        common.erase(differ.first, common.end());
    }
    return common;
}

void print_choice(const std::vector<std::string> &words)
{
    size_t column = 0;
    putchar('\n');
    for (const std::string &word : words) {
        if (column + word.size() > 78) putchar('\n'), column = 0;
        column += static_cast<size_t>(printf("%s  ", word.c_str()));
    }
    putchar('\n');
    fflush(stdout);
}

line_end read_plain(std::string *line)
{
    char *text = nullptr;
    size_t room = 0;
    errno = 0;
    const ssize_t size = getline(&text, &room, stdin);
    if (size > 0) line->assign(text, static_cast<size_t>(size));
    free(text);
    if (size > 0) return line_end::LINE;
    clearerr(stdin);
    return errno == EINTR && take_interrupt() ? line_end::INTERRUPTED : line_end::INPUT_ENDS;
}

} // namespace

size_t begin_of_word(const std::string &line)
{
    const auto before = line.find_last_of(" \t()\"#");
    return before == line.npos ? 0 : before + 1;
}

line_reader::line_reader(completer complete) : complete_(std::move(complete))
{
    is_terminal_ = isatty(STDIN_FILENO) && isatty(STDOUT_FILENO);
    if (is_terminal_) start_editor();
}

line_reader::~line_reader()
{
    if (editor_ != nullptr) library->el_end(editor_);
    if (history_ != nullptr) library->history_end(history_);
}

// Names are UTF-8 or ASCII, whatever the locale.
void line_reader::start_editor()
{
    library = load_edit_library();
    if (library == nullptr) return;
    setlocale(LC_CTYPE, "");
    if (MB_CUR_MAX == 1) setlocale(LC_CTYPE, "C.UTF-8");
    editor_ = library->el_init("kst", stdin, stdout, stderr);
    if (editor_ == nullptr) return;
    library->el_set(editor_, EL_CLIENTDATA, this);
    library->el_set(editor_, EL_PROMPT, prompt_of);
    library->el_set(editor_, EL_EDITOR, "emacs");
    library->el_set(editor_, EL_GETCFN, read_key);
    library->el_set(editor_, EL_ADDFN, "kst-complete", "completes a word", complete_word);
    library->el_set(editor_, EL_BIND, "^I", "kst-complete", nullptr);
    library->el_set(editor_, EL_BIND, "^R", "em-inc-search-prev", nullptr);
    library->el_source(editor_, nullptr);
    load_history();
}

// -- History -----------------------------------------------------------------------------------

// The file holds a line for each entry, the last one last. It grows by appending, so that sessions
// side by side lose nothing, and is cut when a session begins.
void line_reader::load_history()
{
    history_ = library->history_init();
    HistEvent event;
    library->history(history_, &event, H_SETSIZE, MOST_LINES);
    library->history(history_, &event, H_SETUNIQUE, 1);
    library->el_set(editor_, EL_HIST, library->history, history_);
    history_path_ = path_of_history();
    if (!is_file_or_none(history_path_)) history_path_.clear();
    std::vector<std::string> lines = read_lines(history_path_);
    for (const std::string &line : lines) library->history(history_, &event, H_ENTER, line.c_str());
    if (lines.size() < 2 * MOST_LINES) return;
    const std::string fresh = history_path_ + ".new";
    FILE *file = open_private(fresh, O_WRONLY | O_TRUNC, "w");
    if (file == nullptr) return;
    for (size_t i = lines.size() - MOST_LINES; i < lines.size(); i++) write_line(file, lines[i]);
    if (fclose(file) == 0) rename(fresh.c_str(), history_path_.c_str());
}

void line_reader::remember(std::string_view line)
{
    if (history_ == nullptr || line.empty()) return;
    HistEvent event;
    library->history(history_, &event, H_ENTER, std::string(line).c_str());
    if (history_path_.empty()) return;
    make_folders(history_path_);
    FILE *file = open_private(history_path_, O_WRONLY | O_APPEND, "a");
    if (file == nullptr) return;
    write_line(file, line);
    fclose(file);
}

// -- Editing -----------------------------------------------------------------------------------

const char *line_reader::prompt_of(editline *editor)
{
    line_reader *self = nullptr;
    library->el_get(editor, EL_CLIENTDATA, &self);
    return self->prompt_;
}

// A byte that belongs to no character stands for itself.
int line_reader::read_key(editline *, wchar_t *key)
{
    std::mbstate_t state = {};
    for (;;) {
        char byte = 0;
        const ssize_t got = ::read(STDIN_FILENO, &byte, 1);
        if (got == 0) return 0;
        if (got < 0 && errno != EINTR) return -1;
        if (got < 0) {
            if (take_interrupt()) return errno = EINTR, -1;
            continue; // the terminal has another size
        }
        const size_t used = std::mbrtowc(key, &byte, 1, &state);
        if (used == static_cast<size_t>(-2)) continue;
        if (used == static_cast<size_t>(-1)) *key = static_cast<unsigned char>(byte);
        return 1;
    }
}

unsigned char line_reader::complete_word(editline *editor, int)
{
    line_reader *self = nullptr;
    library->el_get(editor, EL_CLIENTDATA, &self);
    const LineInfo *info = library->el_line(editor);
    const std::string line(info->buffer, info->cursor);
    const size_t typed = line.size() - begin_of_word(line);
    const std::vector<std::string> words = self->complete_(line);
    if (words.empty()) return CC_ERROR;
    std::string more = common_begin(words).substr(typed);
    if (words.size() == 1) more.push_back(' ');
    if (more.empty()) {
        print_choice(words);
        return CC_REDISPLAY;
    }
    return library->el_insertstr(editor, more.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
}

line_end line_reader::read(std::string *line, const char *prompt)
{
    line->clear();
    if (editor_ == nullptr) {
        if (is_terminal_) fputs(prompt, stdout), fflush(stdout);
        const line_end end = read_plain(line);
        if (end == line_end::LINE && !line->ends_with('\n')) line->push_back('\n');
        return end;
    }
    prompt_ = prompt;
    int size = 0;
    take_interrupt();
    errno = 0;
    const char *text = library->el_gets(editor_, &size);
    if (text != nullptr && size > 0) {
        line->assign(text, static_cast<size_t>(size));
        return line_end::LINE;
    }
    const bool was_interrupted = size < 0 && errno == EINTR;
    putchar('\n');
    return was_interrupted ? line_end::INTERRUPTED : line_end::INPUT_ENDS;
}
