// String instructions: each a function of the string library behind the fetch of its operands.

#include <cstdlib>

#include "vm/engine.h"
#include "vm/handler.h"
#include "vm/text.h"

namespace {

// The target may hold either, where it was computed into the result record.
CHR *join(CHR **targ, const CHR *first, const CHR *second)
{
    if (*targ != nullptr && *targ == second) return lcat(targ, first);
    equ(targ, first);
    return cat(targ, second);
}

ULO first_byte(const CHR *string) { return string == nullptr ? 0 : static_cast<UCH>(*string); }

CHR *one_byte(CHR **targ, SLO code) { return sch2str(targ, static_cast<SCH>(code)); }

CHR *environment(CHR **targ, const CHR *name)
{
    the_engine.environment_asked = 1;
    return get_std_buff(targ, name == nullptr ? nullptr : getenv(name));
}

} // namespace

HANDLERS(chr, text<one_byte>)
HANDLERS(asc, text<first_byte>)
HANDLERS(crcsum, text<crcsum>)
HANDLERS(dump_i2s, text<slo2str>)
HANDLERS(dump_f2s, text<dfl2str>)
HANDLERS(dump_s2i, text<str2slo>)
HANDLERS(dump_s2f, text<str2dfl>)
HANDLERS(notempty, text<notempty>)
HANDLERS(len, text<len>)
HANDLERS(at, text<at>)
HANDLERS(rat, text<rat>)
HANDLERS(cat, text<join>)
HANDLERS(space, text<space>)
HANDLERS(replicate, text<replicate>)
HANDLERS(left, text<left>)
HANDLERS(leftr, text<leftr>)
HANDLERS(right, text<right>)
HANDLERS(rightl, text<rightl>)
HANDLERS(substr, text<substr>)
HANDLERS(strtran, text<strtran>)
HANDLERS(str_raw, text<strraw>)
HANDLERS(str_unraw, text<strunraw>)
HANDLERS(str_dump, text<strdump>)
HANDLERS(ltrim, text<ltrim>)
HANDLERS(rtrim, text<rtrim>)
HANDLERS(alltrim, text<alltrim>)
HANDLERS(pack, text<pack>)
HANDLERS(head, text<head>)
HANDLERS(tail, text<tail>)
HANDLERS(lsp_head, text<lsp_head>)
HANDLERS(lsp_tail, text<lsp_tail>)
HANDLERS(upper, text<upper>)
HANDLERS(lower, text<lower>)
HANDLERS(upper_utf8, text<upper_utf8>)
HANDLERS(lower_utf8, text<lower_utf8>)
HANDLERS(is_utf8char, text<is_utf8char>)
HANDLERS(ltrim_utf8, text<ltrim_utf8>)
HANDLERS(rtrim_utf8, text<rtrim_utf8>)
HANDLERS(alltrim_utf8, text<alltrim_utf8>)
HANDLERS(rev, text<rev>)
HANDLERS(padl, text<padl>)
HANDLERS(padr, text<padr>)
HANDLERS(padc, text<padc>)
HANDLERS(getenv, text<environment>)
