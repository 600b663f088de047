// A unit that embeds an expression evaluator: text of the language, kept as data, is compiled when
// it is first met and run from its bytecode ever after.
//
//     (EVAL text x)         value of the expression, cast to a float; (EVAL_X) in it stands for x
//     (EVAL_X)              that x; 0. outside an expression
//     (EVAL_COMPILATIONS)   how many texts have been compiled so far
//
// EVAL calls the handler of MAPCAR with a node made by hand. Member 8 of the answer is the compiled
// code; handed to MAPCAR in place of the text it runs without being compiled again.

#include <kestrin/ckst_udf.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace {

// Codes from 17 to 248 are free for a unit's errors.
enum : UCH { SYNTAX_FAULT = 17, RUNTIME_FAULT = 18 };

// Bytecode by text. A std::string holds its bytes, NUL too; the run is on one thread.
std::map<std::string, std::string> compiled;
SLO compilations = 0;
DFL current_x = 0.0;

std::string bytes_of(const CHR *string) { return std::string(string, string + len(string)); }

// A node of a string constant: the handler's word, then the counted string as it lies in memory,
// with its length in front and NUL bytes behind, up to a whole word.
std::vector<ULO> constant_node(const std::string &text)
{
    std::vector<ULO> node(2 + text.size() / 8 + 1, 0);
    node[0] = reinterpret_cast<ULO>(func__dummy_s);
    node[1] = text.size();
    memcpy(&node[2], text.data(), text.size());
    return node;
}

// Runs text or bytecode; the answer is the caller's.
void call_mapcar(const std::string &code, kestrin_data *answer)
{
    const std::vector<ULO> node = constant_node(code);
    const ULO operand_word = reinterpret_cast<ULO>(node.data());
    func__mapcar(&operand_word, answer);
}

const kestrin_data &member(const kestrin_data &answer, ULO number)
{
    return answer.array.mix[number];
}

DFL to_float(const kestrin_data &value)
{
    switch (value.type) {
    case 'I': return static_cast<DFL>(value.value.ival);
    case 'F': return value.value.fval;
    case 'S': return value.svalue == nullptr ? 0.0 : atof(value.svalue);
    default: return 0.0;
    }
}

// What went wrong in the expression becomes an error of the program that asked for its value.
void rise_fault(UCH code, const CHR *text, const ULO *dat_ptr)
{
    CHR *full = nullptr;
    get_std_buff(&full, "Eval: ");
    rise_error_info_dbg(code, cat(&full, text), dat_ptr);
    free_string(&full);
}

// The value of the code, or an error that is pending afterwards.
DFL settle(const kestrin_data &answer, const ULO *dat_ptr)
{
    if (member(answer, MAPCAR_SYNTAX_CODE).value.ival != 0)
        rise_fault(SYNTAX_FAULT, member(answer, MAPCAR_SYNTAX_TEXT).svalue, dat_ptr);
    else if (member(answer, MAPCAR_ERROR_CODE).value.ival != 0)
        rise_fault(RUNTIME_FAULT, member(answer, MAPCAR_ERROR_TEXT).svalue, dat_ptr);
    return to_float(member(answer, MAPCAR_VALUE));
}

// A text that doesn't compile has no bytecode to keep.
void keep_compiled(const std::string &text, const kestrin_data &answer)
{
    const CHR *bytecode = member(answer, MAPCAR_COMPILED).svalue;
    if (len(bytecode) == 0) return;
    compiled[text] = bytes_of(bytecode);
    compilations++;
}

DFL evaluate(const std::string &text, const ULO *dat_ptr)
{
    kestrin_data answer = owning_slot;
    const auto known = compiled.find(text);
    if (known != compiled.end()) {
        call_mapcar(known->second, &answer);
    } else {
        call_mapcar(text, &answer);
        keep_compiled(text, answer);
    }
    const DFL value = settle(answer, dat_ptr);
    free_kst_data(&answer);
    return value;
}

void answer_float(kestrin_data *ret_dat, DFL value)
{
    ret_dat->single = 1;
    ret_dat->type = 'F';
    ret_dat->value.fval = value;
}

// -- Handlers ----------------------------------------------------------------------------------

// An expression may use EVAL itself, so the outer x comes back behind it.
void eval(const ULO *dat_ptr, kestrin_data *ret_dat)
{
    CHR *text = nullptr;
    DFL x = 0.0;
    ret_dat->disable_ptr = 1;
    ret_sval(dat_ptr, &text);
    ret_fval(dat_ptr + 1, &x);
    if (noterror()) {
        const DFL outer_x = current_x;
        current_x = x;
        const DFL value = evaluate(bytes_of(text), dat_ptr);
        current_x = outer_x;
        if (noterror()) answer_float(ret_dat, value);
    }
    free_string(&text);
}

void eval_x(const ULO *, kestrin_data *ret_dat)
{
    if (!noterror()) return;
    ret_dat->disable_ptr = 1;
    answer_float(ret_dat, current_x);
}

void eval_compilations(const ULO *, kestrin_data *ret_dat)
{
    if (!noterror()) return;
    ret_dat->disable_ptr = 1;
    ret_dat->single = 1;
    ret_dat->type = 'I';
    ret_dat->value.ival = compilations;
}

const UCH text_and_float[] = "SF";

} // namespace

const INSTRUCTION_STRU INSTRUCTION_SET[] = {
    {"EVAL", 2, 'F', text_and_float, eval},
    {"EVAL_X", 0, 'F', nullptr, eval_x},
    {"EVAL_COMPILATIONS", 0, 'I', nullptr, eval_compilations},
};
const ULO INSTRUCTIONS = sizeof INSTRUCTION_SET / sizeof INSTRUCTION_SET[0];
const CHR *VERSION_CKSTUDF___ = "Evaluator example v.1.0.0.";

void startup_callback() {}
void taskjob_end_callback(ULO) { compiled.clear(); }
void user_io_callback(SLO, CHR **) {}

int main(int argc, char **argv) { return _Main_(argc, argv); }
