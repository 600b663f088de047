// The integrity check. The program's own check has entered its functions in the table, so the
// second one works on a copy of what stood there before.

#include "driver/integrity.h"

#include "driver/listing.h"
#include "frontend/check.h"
#include "frontend/forms.h"
#include "frontend/isa.h"
#include "frontend/lut.h"
#include "kestrin/strings.h"
#include "strings/scratch.h"
#include "vm/engine.h"

namespace {

lut *remembered = nullptr;

// Every row with its scope; the scope counter of a table decides that of a new row.
void copy_functions(const lut *known)
{
    for (ULO i = 0; i < known->lut_count; i++) {
        const lut_entry *entry = known->lut_entries[i];
        if (remembered != nullptr) remembered->lut_scope = entry->scope;
        lut_add(&remembered, entry->key, entry->value);
    }
    if (remembered != nullptr) remembered->lut_scope = known->lut_scope;
}

void fill_from_instructions()
{
    tree t;
    if (kestrin_check(&t, &t.root, wrapped("1"), 0, "UDFs_CFG", &remembered) < 0)
        die_of_syntax_error();
}

} // namespace

void remember_functions(const session *)
{
    if (isa_is_built_in()) return;
    if (the_engine.func_lut == nullptr)
        fill_from_instructions();
    else
        copy_functions(the_engine.func_lut);
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
    lut_free(&remembered);
}
