// The linker: one walk over the words of an image. After it no name and no table is looked up
// again.

#include "bytecode/link.h"

#include <vector>

#include "frontend/isa.h"
#include "frontend/words.h"
#include "strings/fatal.h"
#include "strings/scratch.h"
#include "vm/engine.h"
#include "vm/image.h"
#include "vm/leaf.h"
#include "vm/stack.h"
#include "vm/variants.h"

namespace {

// Which variables of a function a piece of code assigns: a bit for each number modulo 64, so that a
// set bit means "perhaps".
using assigned_set = ULO;

assigned_set bit_of(ULO variable) { return ULO(1) << (variable % 64); }

// Stands where an instruction's slot is empty.
void no_handler(const ULO *, kestrin_data *)
{
    fatal(fatal_site::NO_HANDLER, "The program has reached an instruction without a handler.");
}

fcall leaf_handler(CHR letter)
{
    switch (letter) {
    case 'I': return func__dummy_i;
    case 'F': return func__dummy_f;
    case 'S': return func__dummy_s;
    case 'Z': return func__dummy_z;
    case 'V': return func__getval;
    case 'i': return func__getval_i;
    case 'f': return func__getval_f;
    case 's': return func__getval_s;
    case 'z': return func__getval_z;
    case 'P': return func__getval_ptr;
    default: return nullptr;
    }
}

void set_handler(ULO *word, fcall handler)
{
    *word = reinterpret_cast<ULO>(handler == nullptr ? no_handler : handler);
}

// Where the operands of a node are, and what else it says.
struct operand_span {
    ULO *first;
    ULO count;
    bool assigns; // word 1 is the number of a variable that the node sets
    bool leads;   // operand 0 is the node of a variable that it sets
};

// What a parent may want to know of a node that has been linked.
struct linked_node {
    assigned_set assigned = 0;
    const variant *form = nullptr; // other ways to call it
};

class linker {
public:
    void link_image(ULO *p, ULO scope);

private:
    linked_node link_operand(ULO *word);
    linked_node link_node(ULO *p);
    operand_span link_instruction(ULO *p, ULO payload);
    operand_span link_call(ULO *p, ULO payload, CHR letter);

    std::vector<ULO> udf_table_; // addresses of the images in scope
};

operand_span linker::link_instruction(ULO *p, ULO payload)
{
    const isa_row &row = isa_table[image::row_of(payload)];
    const group_set groups = word_groups(view(*row.mnemonic));
    set_handler(p, row.slots[image::slot_of(payload)]);
    if (row.operands < 0) return {p + 2, p[1], false, false};
    const ULO operands = static_cast<ULO>(row.operands);
    if (groups & variable_first) {
        const bool assigns = !(groups & (in(GROUP_INDEX) | in(GROUP_ALINDEX)));
        return {p + 2, operands - 1, assigns, false};
    }
    return {p + 1, operands, false, (groups & in(GROUP_FOR)) != 0};
}

operand_span linker::link_call(ULO *p, ULO payload, CHR letter)
{
    set_handler(p, isa_table[image::row_of(payload)].slots[0]);
    const auto *global = reinterpret_cast<const ULO *>(the_engine.global_udf_code);
    p[1] = letter == 'L' ? udf_table_[p[1]] : global[image::UDF_TABLE + p[1]];
    return {p + 3, p[2], false, false};
}

// The target of an operand word, linked.
linked_node linker::link_operand(ULO *word)
{
    ULO *node = word + *word;
    *word = reinterpret_cast<ULO>(node);
    const fcall leaf = leaf_handler(image::letter_of(*node));
    if (leaf == nullptr) return link_node(node);
    set_handler(node, leaf);
    return {};
}

// Operands are linked from the last to the first: an argument that is passed by alias keeps its
// value for the call, so it is copied where a later argument may assign the variable.
linked_node linker::link_node(ULO *p)
{
    check_stack(fatal_site::STACK_LINK);
    const CHR letter = image::letter_of(*p);
    const ULO payload = image::payload_of(*p);
    operand_span operands = {};
    if (letter == 'T')
        operands = link_instruction(p, payload);
    else if (letter == 'L' || letter == 'G')
        operands = link_call(p, payload, letter);
    else if (letter == 't') {
        const INSTRUCTION_STRU &row = isaext_table[image::row_of(payload)];
        set_handler(p, row.func_ptr);
        operands = {p + 1, static_cast<ULO>(row.operands), false, false};
    }
    linked_node linked;
    const variant *forms[looked_at] = {};
    for (ULO i = operands.count; i-- > 0;) {
        const linked_node operand = link_operand(operands.first + i);
        linked.assigned |= operand.assigned;
        if (i < looked_at) forms[i] = operand.form;
        ULO *node = reinterpret_cast<ULO *>(operands.first[i]);
        if (*node == reinterpret_cast<ULO>(func__getval_ptr) && (linked.assigned & bit_of(node[1])))
            set_handler(node, func__getval);
    }
    if (letter == 'T') linked.form = specialise(p, operands.first, forms);
    if (operands.assigns) linked.assigned |= bit_of(p[1]);
    if (operands.leads)
        linked.assigned |= bit_of(reinterpret_cast<const ULO *>(operands.first[0])[1]);
    return linked;
}

void linker::link_image(ULO *p, ULO scope)
{
    check_stack(fatal_site::STACK_LINK);
    ULO *main_node = p + image::payload_of(*p);
    *p = reinterpret_cast<ULO>(main_node);
    for (ULO i = 0; i < p[image::UDFS]; i++) {
        ULO *entry = p + image::UDF_TABLE + i, *udf = entry + *entry;
        *entry = reinterpret_cast<ULO>(udf);
        udf_table_.push_back(*entry);
        link_image(udf, ++scope);
        udf_table_.resize(scope); // what the UDF's own scope added
    }
    const fcall leaf = leaf_handler(image::letter_of(*main_node));
    if (leaf != nullptr)
        set_handler(main_node, leaf);
    else
        link_node(main_node);
}

} // namespace

void kestrin_link(CHR *code) { linker().link_image(reinterpret_cast<ULO *>(code), 0); }
