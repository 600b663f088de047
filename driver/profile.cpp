// The profile stage. The set is built as one PROGN, so that squeezing and the type pass treat it
// like a program, and is then stripped to its definitions.

#include "driver/profile.h"

#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "frontend/check.h"
#include "frontend/isa.h"
#include "frontend/justify.h"
#include "frontend/reader.h"
#include "frontend/squeeze.h"
#include "frontend/token.h"
#include "frontend/uninit.h"
#include "frontend/walk.h"
#include "frontend/words.h"
#include "kestrin/strings.h"
#include "strings/scratch.h"
#include "vm/engine.h"
#include "vm/machine.h"

namespace {

// What the wrapper adds behind the definitions.
constexpr std::string_view values = " 0 1)";

bool can_open(const CHR *path)
{
    const int file = path == nullptr ? -1 : open(path, O_RDONLY);
    if (file >= 0) close(file);
    return file >= 0;
}

std::string_view inside(std::string_view form)
{
    return form.size() < 2 ? std::string_view() : form.substr(1, form.size() - 2);
}

group_set groups_of_first_word(std::string_view text)
{
    std::string folded;
    append_folded(&folded, first_token(text));
    return word_groups(folded);
}

bool is_list(std::string_view token)
{
    return token.size() >= 2 && token.front() == '(' && token.back() == ')';
}

// Whether a form is a definition or a comment, comments ahead of its first word left out.
bool is_definition(std::string_view form)
{
    std::string_view rest = inside(form);
    if (groups_of_first_word(rest) & (in(GROUP_DEFUN) | in(GROUP_COMMENTS))) return true;
    for (auto token = first_token(rest); !token.empty(); token = first_token(rest)) {
        if (!is_list(token)) return (groups_of_first_word(rest) & in(GROUP_DEFUN)) != 0;
        if (!(groups_of_first_word(inside(token)) & in(GROUP_COMMENTS))) return false;
        rest = behind_first_token(rest);
    }
    return false;
}

void append_to_index(std::string_view form, ULO number)
{
    scratch name;
    assign(&name.s, first_token(behind_first_token(inside(form))));
    upper(&name.s, name.s);
    std::string index(view(the_engine.global_udf_index));
    index.append(view(name.s)).append("\xFE").append(std::to_string(number)).append("\xFF");
    assign(&the_engine.global_udf_index, index);
}

// One form of the profile. False if the loop is to end: with a syntax error left, or at a form
// without an element.
bool take_form(std::string_view form, std::string *set, ULO *number)
{
    const std::string shown(form);
    if (form.front() != '(') die(message::NOT_A_FUNCTION, shown.c_str());
    std::string_view word;
    if (!kestrin_head(&word, inside(form)) || word.empty()) return false;
    if (!is_definition(form))
        die(message::NOT_A_DEFINITION, shown.c_str(), std::string(mnemonic(ISA_DEFUN)).c_str());
    scratch checked;
    assign(&checked.s, form);
    if (kestrin_check(&checked.s, "UDFs_CFG", &the_engine.func_lut) < 0) return false;
    if (!notempty(checked.s)) return true;
    set->append(" ").append(view(checked.s));
    append_to_index(view(checked.s), (*number)++);
    return true;
}

// All forms, checked, as the inside of a PROGN.
void take_forms(std::string_view rest, std::string *set)
{
    ULO number = 0;
    std::string_view form;
    while (!rest.empty() && kestrin_head(&form, rest) && !form.empty()) {
        if (!take_form(form, set, &number)) break;
        if (!kestrin_tail(&rest, rest)) break;
    }
    if (rt_ctrl->rt_run_flag != 0) die_of_syntax_error();
}

// The functions survive all pruning and are visible to every later check.
void keep_functions_for_good()
{
    lut *table = the_engine.func_lut;
    for (ULO i = 0; table != nullptr && i < table->lut_count; i++) table->lut_entries[i]->scope = 0;
}

// Takes the PROGN and the two values off again.
void strip_wrapper(CHR **text)
{
    const ULO head = mnemonic(ISA_PROGN).size() + 2;
    leftr(text, rightl(text, *text, head), values.size());
}

void squeeze_set(const session *s)
{
    const std::string progn(mnemonic(ISA_PROGN));
    tell(s, message::SQUEEZING_SET, progn.c_str());
    const ULO removed = progn_squeeze(&the_engine.global_udf_text);
    tell(s, message::SQUEEZED, progn.c_str(), removed);
    if (!s->verbose) return;
    say(message::LOOKING_FOR_UNSET_IN_SET);
    print_warnings(kst_uninit_check("UDFs_CFG", view(the_engine.global_udf_text)));
}

void type_set(const session *s)
{
    equ(&the_engine.global_udf_code, the_engine.global_udf_text);
    strip_wrapper(&the_engine.global_udf_text);
    tell(s, message::RESOLVING_SET);
    assign(&the_engine.global_udf_types, "\xFF");
    kestrin_justify(&the_engine.global_udf_code, &the_engine.global_udf_types);
    strip_wrapper(&the_engine.global_udf_code);
}

} // namespace

void load_profile(session *s)
{
    if (!can_open(s->cfg_profile_path)) return;
    tell(s, message::READING_PROFILE, s->cfg_profile_path);
    scratch text;
    read_from_file(&text.s, s->cfg_profile_path);
    alltrim(&text.s, text.s);
    tell(s, message::CHECKING_PROFILE);
    if (len(text.s) == 0) return;
    assign(&the_engine.global_udf_index, "\xFF");
    std::string set = std::string("(").append(mnemonic(ISA_PROGN));
    take_forms(view(text.s), &set);
    keep_functions_for_good();
    assign(&the_engine.global_udf_text, set.append(values));
    squeeze_set(s);
    type_set(s);
}
