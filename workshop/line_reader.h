// Lines from a person at a terminal, who edits, completes and recalls them, or from a pipe.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

struct editline;
struct history;

enum class line_end { LINE, INPUT_ENDS, INTERRUPTED };

// Where a word of the language begins that ends at the end of the line.
size_t begin_of_word(const std::string &line);

class line_reader {
public:
    // What may stand for the word in front of the cursor; `line` is all that is in front of it.
    using completer = std::function<std::vector<std::string>(const std::string &line)>;

    explicit line_reader(completer complete);
    ~line_reader();
    line_reader(const line_reader &) = delete;
    line_reader &operator=(const line_reader &) = delete;

    // Both the standard input and output are a terminal.
    bool is_terminal() const { return is_terminal_; }
    // The next line, with a newline at its end. A last line may be read together with the end of
    // the input. Lines of an input that is no terminal leave the rest to who else reads it.
    line_end read(std::string *line, const char *prompt);
    // Makes a line one that can be recalled, in later sessions too. Only of a terminal.
    void remember(std::string_view line);

private:
    static const char *prompt_of(editline *editor);
    static int read_key(editline *editor, wchar_t *key);
    static unsigned char complete_word(editline *editor, int key);
    void load_history();
    void start_editor();

    completer complete_;
    bool is_terminal_ = false;
    editline *editor_ = nullptr; // NULL too where the editor's library is missing
    history *history_ = nullptr;
    const char *prompt_ = "";
    std::string history_path_; // empty: there is none
};
