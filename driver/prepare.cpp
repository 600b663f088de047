// The numbered patterns. Each adds an outer PROGN; squeezing flattens the layers afterwards. All
// words of the language are taken from the instruction table, which a unit may have renamed.

#include "driver/prepare.h"

#include <string>
#include <vector>

#include "frontend/forms.h"
#include "frontend/isa.h"
#include "frontend/token.h"
#include "kestrin/strings.h"
#include "strings/scratch.h"
#include "terminal/terminal.h"
#include "vm/machine.h"

namespace {

// Puts "(PROGN", the assignments and ")" around the program. What a command-line word has brought
// out of balance is woven in as text.
void put_in_front(session *s, const std::string &assignments)
{
    tree *t = &s->program;
    std::string text = "(";
    text.append(mnemonic(ISA_PROGN)).append(assignments);
    const node_index form = t->settled ? t->add_checked(text + ")") : NO_NODE;
    if (form == NO_NODE) return t->read(text.append(" ").append(t->written()).append(")"), CHECKED);
    node_index last = t->nodes[form].first;
    while (t->nodes[last].next != NO_NODE) last = t->nodes[last].next;
    t->nodes[last].next = t->root;
    t->root = form;
}

void append_assignment(std::string *text, std::string_view target, std::string_view value)
{
    text->append(" (").append(mnemonic(ISA_SETQ)).append(" ").append(target);
    text->append(" ").append(value).append(")");
}

std::string quoted(std::string_view text) { return std::string("\"").append(text).append("\""); }

std::string quoted_raw(const CHR *string)
{
    scratch shown;
    return quoted(view(strunraw(&shown.s, string)));
}

// The text that stands for a command-line word. What is bare on the command line is a string.
std::string argument_text(const CHR *word)
{
    std::string text;
    switch (kestrin_type(word, &text)) {
    case 'V':
    case 'P': return quoted(word);
    case 0:
        say(message::ARGUMENT_REFUSED, word);
        die(message::ARGUMENT_ERROR, unsigned(rt_ctrl->rt_run_flag), rt_ctrl->rt_run_text);
    default: return text;
    }
}

// The same of a number and nil; empty for all other words.
std::string number_text(const CHR *word)
{
    std::string text;
    const UCH letter = kestrin_type(word, &text);
    rt_ctrl->rt_run_flag = 0;
    equ(&rt_ctrl->rt_run_text, nullptr);
    return letter == 'I' || letter == 'F' || letter == 'Z' ? text : std::string();
}

} // namespace

void tell_wrapping(const session *s) { tell(s, message::PATTERN_1, isa_mnemonics[ISA_PROGN]); }

void wrap_program(session *s)
{
    tell_wrapping(s);
    wrap(&s->program);
}

void bind_terminal(session *s)
{
    tell(s, message::PATTERN_2, isa_mnemonics[ISA_PROGN], isa_mnemonics[ISA_SETQ]);
    std::string text;
#define TERM_NAME(name, standard)                                                                  \
    append_assignment(&text, mnemonic(ISA_##name), quoted_raw(terminal.name));
#define TERM_NUMBER(name, capability, standard, few, least, what)                                  \
    append_assignment(&text, mnemonic(ISA_##name), std::to_string(terminal.name));
#define TERM_STRING(name, capability, standard, what)                                              \
    append_assignment(&text, mnemonic(ISA_##name), quoted_raw(terminal.name));
#include "terminal/terminal.def"
#undef TERM_NAME
#undef TERM_NUMBER
#undef TERM_STRING
    put_in_front(s, text);
}

void bind_arguments(session *s)
{
    tell(s, message::PATTERN_3, isa_mnemonics[ISA_PROGN], isa_mnemonics[ISA_SETQ]);
    std::string text;
    for (ULO i = 1; i <= s->words_behind_file(); i++)
        append_assignment(&text, "$" + std::to_string(i), argument_text(s->word(i)));
    put_in_front(s, text);
}

// A string has no text that would give all its bytes again: it is put into the tree.
void bind_exact_words(session *s)
{
    std::string text;
    std::vector<bool> is_string;
    for (ULO i = 1; i <= s->words_behind_file(); i++) {
        const std::string number = number_text(s->word(i));
        is_string.push_back(number.empty());
        append_assignment(&text, "$" + std::to_string(i), number.empty() ? "\"\"" : number);
    }
    put_in_front(s, text);
    tree *t = &s->program;
    node_index assignment = t->nodes[t->root].first;
    for (ULO i = 0; i < is_string.size(); i++, assignment = t->nodes[assignment].next)
        if (is_string[i]) t->make_string(t->nodes[t->nodes[assignment].first].next, s->word(i + 1));
}
