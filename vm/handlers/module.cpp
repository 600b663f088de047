// Instructions that answer facts: about the module, its versions and its build, the formats of
// casts, and the clock.

#include "kestrin/module.h"
#include "vm/handler.h"
#include "vm/text.h"
#include "vm/versions.h"

// Facts of the build, which its builder can set. KESTRIN_BUILT_ON: system, host and kernel.
#if defined(__clang__)
#define COMPILER __VERSION__
#else
#define COMPILER "GNU C++ " __VERSION__
#endif
#if !defined(KESTRIN_BUILT_AT)
#define KESTRIN_BUILT_AT __DATE__
#endif

const CHR compiled_on[] = KESTRIN_BUILT_ON;
const CHR compiled_by[] = COMPILER ", 64-bit executable, " KESTRIN_BUILT_AT;

namespace {

constexpr CHR integer_format[] = "%ld";
constexpr CHR float_format[] = "%.16E";
constexpr CHR string_format[] = "%s";

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

LEAF_HANDLER(version_kestrin, fixed<version_kestrin>)
LEAF_HANDLER(version_termcap, fixed<version_termcap>)
LEAF_HANDLER(version_strglib, fixed<version_strglib>)
LEAF_HANDLER(version_mempool, fixed<version_mempool>)
LEAF_HANDLER(compiled_on, fixed<compiled_on>)
LEAF_HANDLER(compiled_by, fixed<compiled_by>)
LEAF_HANDLER(prn_integer_fmt, fixed<integer_format>)
LEAF_HANDLER(prn_float_fmt, fixed<float_format>)
LEAF_HANDLER(prn_string_fmt, fixed<string_format>)
LEAF_HANDLER(time, string_time)
