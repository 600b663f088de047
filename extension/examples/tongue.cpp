// A unit that speaks another tongue: it renames instructions ahead of _Main_, here to Czech. Their
// letters outside ASCII are letters of names once the names are read as UTF-8; source may be
// written in small letters, as ever, since names fold by UTF-8 then.
//
// Only spellings change: the rows keep their numbers, so the bytecode is the same. A precompiled
// file is bound to the spellings all the same: the plain program refuses the files of this one, and
// this one refuses the files of the plain program.

#include <kestrin/ckst_udf.h>

#include <map>
#include <sstream>
#include <string>

namespace {

// In upper case: a program's names are folded before they are looked up.
const std::map<std::string, std::string> czech = {
    {"PROGN", "POSTUPNĚ"},   {"SETQ", "NASTAV"},         {"ARSETQ", "NASTAV_PRVEK"},
    {"INDEX", "PRVEK"},      {"INDICES", "POČET_PRVKŮ"}, {"DEFUN", "FUNKCE"},
    {"IF", "KDYŽ"},          {"WHILE", "DOKUD"},         {"FOR", "PRO"},
    {"BREAK", "PŘERUŠ"},     {"EXIT", "KONEC"},          {"REM", "POZNÁMKA"},
    {"OUTF", "VYPIŠ"},       {"EQUAL", "ROVNO"},         {"LESS", "MENŠÍ"},
    {"GREATER", "VĚTŠÍ"},    {"AND", "A_ZÁROVEŇ"},       {"OR", "NEBO"},
    {"NOT", "NENÍ"},         {"LEN", "DÉLKA"},           {"CAT", "SPOJ"},
    {"REPLICATE", "OPAKUJ"}, {"UPPER_UTF8", "VELKÝMI"},  {"LOWER_UTF8", "MALÝMI"},
    {"MAPCAR", "VYHODNOŤ"},  {"IMOD", "ZBYTEK"},
};

// The list has one word for each row, in row order: each is looked up and put back.
std::string translated(const CHR *mnemonics)
{
    std::istringstream words{std::string(mnemonics)};
    std::string list, word;
    while (words >> word) {
        const auto found = czech.find(word);
        list.append(found == czech.end() ? word : found->second).append(" ");
    }
    return list;
}

} // namespace

// An array needs a row; INSTRUCTIONS says that it doesn't count.
const INSTRUCTION_STRU INSTRUCTION_SET[] = {{nullptr, 0, 0, nullptr, nullptr}};
const ULO INSTRUCTIONS = 0;
const CHR *VERSION_CKSTUDF___ = "Tongue example v.1.0.0.";

void startup_callback() {}
void taskjob_end_callback(ULO) {}
void user_io_callback(SLO, CHR **) {}

int main(int argc, char **argv)
{
    setup_quarne_thread_safe_functionality_for_local_thread();
    _internal_ISA_COP_mnemonics_vars_ASCIIorUTF8_set(1);
    CHR *mnemonics = nullptr;
    _internal_ISA_COP_mnemonics_get(&mnemonics);
    _internal_ISA_COP_mnemonics_set(get_std_buff(&mnemonics, translated(mnemonics).c_str()));
    free_string(&mnemonics);
    return _Main_(argc, argv);
}
