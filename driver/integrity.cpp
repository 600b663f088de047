// The integrity check. The program's own check enters its functions in the table, so the second one
// works on a view of what stood there before.

#include "driver/integrity.h"

#include "driver/listing.h"
#include "frontend/check.h"
#include "frontend/forms.h"
#include "frontend/isa.h"
#include "frontend/lut.h"
#include "vm/engine.h"

namespace {

lut *remembered = nullptr;

} // namespace

void remember_functions()
{
    if (isa_is_built_in()) return;
    remembered = lut_make_view(the_engine.func_lut);
    tree t; // whose check fills a table that is not there yet
    if (remembered == nullptr &&
        kestrin_check(&t, &t.root, wrapped("1"), 0, "UDFs_CFG", &remembered) < 0)
        die_of_syntax_error();
}

void check_integrity(const session *s)
{
    if (isa_is_built_in()) return;
    tell(s, message::CHECKING_INTEGRITY);
    tree t;
    if (kestrin_check(&t, &t.root, s->program.written(), 0, "Main_Modified", &remembered) < 0) {
        list_if(s->is_on(SWITCH_MODIFIED_SRC), s, message::INTEGRITY_PRINT_DISABLED,
                [s] { kestrin_print_form(s->program.written(), style_of(*s)); });
        die_of_syntax_error();
    }
}
