// The profile stage. The set is built as one PROGN with two values behind the definitions, so that
// squeezing and the type pass treat it like a program. They change what is in a definition, but
// none takes another's place.

#include "driver/profile.h"

#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "frontend/check.h"
#include "frontend/isa.h"
#include "frontend/justify.h"
#include "frontend/reader.h"
#include "frontend/squeeze.h"
#include "frontend/token.h"
#include "frontend/uninit.h"
#include "frontend/words.h"
#include "kestrin/strings.h"
#include "strings/tokens.h"
#include "vm/engine.h"
#include "vm/machine.h"

namespace {

bool can_open(const CHR *path)
{
    const int file = path == nullptr ? -1 : open(path, O_RDONLY);
    if (file >= 0) close(file);
    return file >= 0;
}

group_set groups_of_first_word(std::string_view text)
{
    std::string folded;
    append_folded(&folded, first_token(text));
    return word_groups(folded);
}

// Whether a form is a definition or a comment, comments ahead of its first word left out.
bool is_definition(std::string_view form)
{
    std::string_view rest = inside(form);
    if (groups_of_first_word(rest) & (in(GROUP_DEFUN) | in(GROUP_COMMENTS))) return true;
    for (auto token = first_token(rest); is_list(token); token = first_token(rest)) {
        if (!(groups_of_first_word(inside(token)) & in(GROUP_COMMENTS))) return false;
        rest = behind_first_token(rest);
    }
    return (groups_of_first_word(rest) & in(GROUP_DEFUN)) != 0;
}

// One form of the profile, which stands at `place` in its text. False if the loop is to end: with a
// syntax error left, or at a form without an element.
bool take_form(session *s, std::string_view form, SLO place, std::vector<node_index> *definitions)
{
    const std::string shown(form);
    if (form.front() != '(') die(message::NOT_A_FUNCTION, shown.c_str());
    std::string_view word;
    if (!kestrin_head(&word, inside(form)) || word.empty()) return false;
    if (!is_definition(form))
        die(message::NOT_A_DEFINITION, shown.c_str(), isa_mnemonics[ISA_DEFUN]);
    node_index root = NO_NODE;
    if (kestrin_check(&s->set, &root, shown, place, "UDFs_CFG", &the_engine.func_lut) < 0)
        return false;
    if (root != NO_NODE) definitions->push_back(root);
    return true;
}

// All forms, checked.
std::vector<node_index> take_forms(session *s, std::string_view text)
{
    std::vector<node_index> definitions;
    std::string_view rest = trimmed(text), form;
    while (!rest.empty() && kestrin_head(&form, rest) && !form.empty()) {
        if (!take_form(s, form, form.data() - text.data(), &definitions)) break;
        rest = behind_first_token(rest);
    }
    if (rt_ctrl->rt_run_flag != 0) die_of_syntax_error();
    return definitions;
}

// The functions survive all pruning and are visible to every later check.
void keep_functions_for_good()
{
    lut *table = the_engine.func_lut;
    for (ULO i = 0; table != nullptr && i < table->lut_count; i++) table->lut_entries[i]->scope = 0;
}

// Makes the definitions, in a row, and what is behind them the arguments of the set's PROGN.
void make_set(tree *set, const std::vector<node_index> &definitions, std::string_view behind)
{
    set->root = set->add_checked(std::string("(").append(mnemonic(ISA_PROGN)).append(behind));
    node_index next = set->nodes[set->root].first;
    for (ULO i = definitions.size(); i > 0; i--) {
        set->nodes[definitions[i - 1]].next = next;
        next = definitions[i - 1];
    }
    set->nodes[set->root].first = next;
}

void squeeze_set(session *s)
{
    tell(s, message::SQUEEZING_SET, isa_mnemonics[ISA_PROGN]);
    const ULO removed = progn_squeeze(&s->set);
    tell(s, message::SQUEEZED, isa_mnemonics[ISA_PROGN], removed);
    if (!s->verbose) return;
    say(message::LOOKING_FOR_UNSET_IN_SET);
    print_warnings(kst_uninit_check("UDFs_CFG", s->set));
}

} // namespace

std::string set_text(const session *s)
{
    std::string text;
    for (const node_index definition : s->definitions) {
        if (!text.empty()) text.push_back(' ');
        s->set.write(definition, &text);
    }
    return text;
}

void close_set(session *s) { make_set(&s->set, s->definitions, " NIL)"); }

void load_profile(session *s)
{
    if (!can_open(s->cfg_profile_path)) return;
    tell(s, message::READING_PROFILE, s->cfg_profile_path);
    take_profile(s,
                 read_from_raw(s->cfg_profile_path, read_raw(s->cfg_profile_path), &s->set.file));
}

void take_profile(session *s, const std::string &text)
{
    tell(s, message::CHECKING_PROFILE);
    if (trimmed(text).empty()) return;
    make_global(s, take_forms(s, text));
}

void make_global(session *s, std::vector<node_index> definitions)
{
    s->definitions = std::move(definitions);
    keep_functions_for_good();
    make_set(&s->set, s->definitions, " 0 1)");
    squeeze_set(s);
    if (s->is_storing()) s->stored_set = set_text(s);
    tell(s, message::RESOLVING_SET);
    static auto *types = new std::vector<udf_letter>;
    types->clear();
    kestrin_justify(&s->set, {}, types);
    the_engine.global_udf_types = *types;
}
