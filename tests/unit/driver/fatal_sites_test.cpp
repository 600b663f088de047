// Module, function and location of every fatal report, which users tell to whoever mends a fault: a
// number that is used twice, changed or lost.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "kestrin/unit.h"
#include "strings/fatal.h"

extern "C" const fatal_site __start_fatal_sites[], __stop_fatal_sites[];

namespace {

const struct {
    const char *module, *function;
    std::vector<ULO> locations;
} known[] = {
    {"fstchain", "mk_std_buff", {1}},
    {"fstchain", "mk_fst_buff", {2}},
    {"fstchain", "get_std_buff", {3}},
    {"fstchain", "equ", {5}},
    {"fstchain", "space", {7}},
    {"fstchain", "cat", {9}},
    {"fstchain", "substr", {11, 12}},
    {"kestrin", "lut_add", {2, 3, 4, 5, 6}},
    {"kestrin", "copy_kst_data_", {7, 8, 9, 10, 11, 12, 13, 14}},
    {"kestrin", "func__arsetq", {15}},
    {"kestrin", "func__arsetq_i", {16, 17}},
    {"kestrin", "func__arsetq_f", {18, 19}},
    {"kestrin", "func__arsetq_s", {20, 21}},
    {"kestrin", "func__arsetq_z", {22}},
    {"kestrin", "func__defun", {23}},
    {"kestrin", "_rbt_new_node", {1}},
    {"kestrin", "func__mapcar", {24, 25, 26, 27}},
    {"kestrin", "read_from_file", {28}},
    {"kestrin", "kestrin_run", {29}},
    {"kestrin", "_internal_ISA_COP_mnemonics_get", {30}},
    {"kestrin", "_internal_ISA_COP_mnemonics_set", {31, 32}},
    {"kestrin", "_internal_ISA_COP_mnemonics_vars_ASCIIorUTF8_set", {33}},
    {"kestrin", "_internal_ISA_COPs_set", {34, 35, 36}},
    {"kestrin", "_internal_ISAext_COPs_set", {37, 38}},
    {"trmnldrv", "keypressed", {1, 2, 3, 4, 5}},
    {"kestrin", "main", {101, 102, 103, 104, 105, 106}},
    {"kestrin", "eval", {120}},
    {"kestrin", "kestrin_check", {123}},
    {"kestrin", "progn_squeeze", {124}},
    {"kestrin", "build_varlist", {125}},
    {"kestrin", "kestrin_compile", {126}},
    {"kestrin", "kestrin_link", {127, 141}},
    {"kestrin", "kestrin_justify", {128}},
    {"kestrin", "kestrin_decompile", {129}},
    {"kestrin", "verify_bytecode", {130}},
    {"kestrin", "kst_uninit_check", {131}},
    {"kestrin", "kestrin_print", {132}},
    {"kestrin", "operator new", {140}},
    {"kestrin", "setup_quarne_thread_safe_functionality_for_local_thread", {142}},
};

// All of the engine is in this program.
[[gnu::used]] int (*const whole_engine)(int, char **) = &_Main_;

std::string line(const char *module, const char *function, ULO location)
{
    return std::string(module) + " " + function + " " + std::to_string(location);
}

TEST(FatalSites, AreThoseThatAreKnown)
{
    std::vector<std::string> listed, found;
    for (const auto &k : known)
        for (const ULO location : k.locations)
            listed.push_back(line(k.module, k.function, location));
    for (const fatal_site *s = __start_fatal_sites; s < __stop_fatal_sites; s++)
        found.push_back(line(s->module, s->function, s->location));
    std::sort(listed.begin(), listed.end());
    std::sort(found.begin(), found.end());
    EXPECT_EQ(listed, found);
}

} // namespace
