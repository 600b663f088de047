// Instructions that answer facts: about the module, its versions and its build, the formats of
// casts, and the clock.

#include "kestrin/module.h"
#include "vm/handler.h"
#include "vm/text.h"
#include "vm/versions.h"

// The builder sets KESTRIN_BUILT_ON, the system, host and kernel, and KESTRIN_BUILT_AT, the day.
#if defined(__clang__)
#define COMPILER __VERSION__
#else
#define COMPILER "GNU C++ " __VERSION__
#endif

const CHR compiled_on[] = KESTRIN_BUILT_ON;
const CHR compiled_by[] = COMPILER ", 64-bit executable, " KESTRIN_BUILT_AT;

namespace {

constexpr CHR INTEGER_FORMAT[] = "%ld";
constexpr CHR FLOAT_FORMAT[] = "%.16E";
constexpr CHR STRING_FORMAT[] = "%s";

template <const CHR *text> CHR *fixed(CHR **targ) { return get_std_buff(targ, text); }

} // namespace

// A fact as a plain function for the extension unit and as an instruction.
#define MODULE_FACT(type, function, name, value)                                                   \
    type function() { return value; }                                                              \
    LEAF_HANDLER(name, function)

MODULE_FACT(ULO, get_n_workunit, n_workunit, 1)
MODULE_FACT(ULO, get_id_workunit, id_workunit, 0)
MODULE_FACT(ULO, get_n_taskjob, n_taskjob, 1)
MODULE_FACT(ULO, get_id_taskjob, id_taskjob, 0)
MODULE_FACT(UCH, am_I_in_the_kestrin_module, am_i_in_the_kestrin_module, 1)
MODULE_FACT(UCH, am_I_in_the_QuarneLdr_module, am_i_in_the_quarneldr_module, 0)
MODULE_FACT(UCH, am_I_in_the_QuarneSrv_module, am_i_in_the_quarnesrv_module, 0)
MODULE_FACT(UCH, am_I_in_the_WORKUNIT_module, am_i_in_the_workunit_module, 0)
MODULE_FACT(UCH, am_I_in_the_multithreaded_module, am_i_in_the_multithreaded_module, 0)

LEAF_HANDLER(VERSION_KESTRIN, fixed<VERSION_KESTRIN>)
LEAF_HANDLER(VERSION_TERMCAP, fixed<VERSION_TERMCAP>)
LEAF_HANDLER(VERSION_STRGLIB, fixed<VERSION_STRGLIB>)
LEAF_HANDLER(VERSION_MEMPOOL, fixed<VERSION_MEMPOOL>)
LEAF_HANDLER(compiled_on, fixed<compiled_on>)
LEAF_HANDLER(compiled_by, fixed<compiled_by>)
LEAF_HANDLER(prn_integer_fmt, fixed<INTEGER_FORMAT>)
LEAF_HANDLER(prn_float_fmt, fixed<FLOAT_FORMAT>)
LEAF_HANDLER(prn_string_fmt, fixed<STRING_FORMAT>)
LEAF_HANDLER(time, string_time)
