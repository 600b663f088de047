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
    image::node_words link_instruction(ULO *p, ULO payload, group_set groups);
    image::node_words link_extension(ULO *p, ULO payload);
    image::node_words link_call(ULO *p, ULO payload, CHR letter);

    std::vector<ULO> udf_table_; // addresses of the images in scope
};

image::node_words linker::link_instruction(ULO *p, ULO payload, group_set groups)
{
    const isa_row &row = isa_table[image::row_of(payload)];
    set_handler(p, row.slots[image::slot_of(payload)]);
    return image::words_of_instruction(row.operands, groups & variable_first);
}

image::node_words linker::link_extension(ULO *p, ULO payload)
{
    const INSTRUCTION_STRU &row = isaext_table[image::row_of(payload)];
    set_handler(p, row.func_ptr);
    return image::words_of_instruction(row.operands, false);
}

image::node_words linker::link_call(ULO *p, ULO payload, CHR letter)
{
    const image::node_words words = image::words_of_call();
    set_handler(p, isa_table[image::row_of(payload)].slots[0]);
    const auto *global = reinterpret_cast<const ULO *>(the_engine.global_udf_code);
    ULO *udf = p + words.udf;
    *udf = letter == 'L' ? udf_table_[*udf] : global[image::UDF_TABLE + *udf];
    return words;
}

// The variable that a linked node sets itself.
assigned_set set_by(const ULO *p, group_set groups, const image::node_words &words)
{
    if (groups & assigns) return bit_of(p[words.variable]);
    if (groups & sets_variable) return bit_of(reinterpret_cast<const ULO *>(p[words.operands])[1]);
    return 0;
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
    group_set groups = 0;
    image::node_words words;
    if (letter == 'T') {
        groups = groups_of(isa_table[image::row_of(payload)]);
        words = link_instruction(p, payload, groups);
    } else if (letter == 't')
        words = link_extension(p, payload);
    else if (letter == 'L' || letter == 'G')
        words = link_call(p, payload, letter);
    ULO *const operands = p + words.operands;
    linked_node linked;
    const variant *forms[looked_at] = {};
    for (ULO i = words.count != 0 ? p[words.count] : words.declared; i-- > 0;) {
        const linked_node operand = link_operand(operands + i);
        linked.assigned |= operand.assigned;
        if (i < looked_at) forms[i] = operand.form;
        ULO *node = reinterpret_cast<ULO *>(operands[i]);
        if (*node == reinterpret_cast<ULO>(func__getval_ptr) && (linked.assigned & bit_of(node[1])))
            set_handler(node, func__getval);
    }
    if (letter != 'T') return linked;
    linked.form = specialise(p, operands, forms);
    linked.assigned |= set_by(p, groups, words);
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
