// The *_TERM instructions: the values of the terminal as they stand at run time, the strings that
// move the cursor, and a new start of the terminal.

#include "terminal/terminal.h"
#include "vm/handler.h"
#include "vm/text.h"

namespace {

template <SSH terminal_record::*number> SLO number_of() { return terminal.*number; }

template <CHR *terminal_record::*string> CHR *string_of(CHR **targ)
{
    return equ(targ, terminal.*string);
}

CHR *expand_template(CHR **targ, const CHR *form, USH y, USH x)
{
    equ(targ, form);
    return term_pre_goto1YX(targ, y, x);
}

// A name changes the terminal type; without one only the size of the window is read again.
CHR *start_again(CHR **targ, const CHR *name)
{
    if (notempty(name)) {
        term_init(name);
        return equ(targ, terminal.init_status);
    }
    term_reinit(name);
    equ(targ, terminal.init_status);
    return cat(targ, terminal.reinit_status);
}

} // namespace

LEAF_HANDLER(term_type, string_of<&terminal_record::TERM_TYPE>)
LEAF_HANDLER(lines_term, number_of<&terminal_record::LINES_TERM>)
LEAF_HANDLER(columns_term, number_of<&terminal_record::COLUMNS_TERM>)
LEAF_HANDLER(clrscr_term, string_of<&terminal_record::CLRSCR_TERM>)
LEAF_HANDLER(reverse_term, string_of<&terminal_record::REVERSE_TERM>)
LEAF_HANDLER(blink_term, string_of<&terminal_record::BLINK_TERM>)
LEAF_HANDLER(bold_term, string_of<&terminal_record::BOLD_TERM>)
LEAF_HANDLER(normal_term, string_of<&terminal_record::NORMAL_TERM>)
LEAF_HANDLER(hidecursor_term, string_of<&terminal_record::HIDECURSOR_TERM>)
LEAF_HANDLER(showcursor_term, string_of<&terminal_record::SHOWCURSOR_TERM>)
HANDLERS(gotocursor_term, text<term_pre_gotoYX>)
HANDLERS(gotocursor1_term, text<expand_template>)
HANDLERS(reinit_terminal, text<start_again>)
