// The linker: one walk over the words of an image. After it no name and no table is looked up
// again.

#include "bytecode/link.h"

#include <cstring>
#include <utility>
#include <vector>

#include "frontend/isa.h"
#include "frontend/words.h"
#include "kestrin/mapcar.h"
#include "strings/fatal.h"
#include "strings/scratch.h"
#include "vm/engine.h"
#include "vm/hot.h"
#include "vm/image.h"
#include "vm/leaf.h"
#include "vm/moves.h"
#include "vm/stack.h"
#include "vm/variants.h"
#include "vm/watch.h"

FATAL_SITE(STACK_LINK, "kestrin", "kestrin_link", 127)
FATAL_SITE(NO_HANDLER, "kestrin", "kestrin_link", 141)

namespace {

// Which variables of a function a piece of code assigns: a bit for each number modulo 64, so that a
// set bit means "perhaps".
using assigned_set = ULO;

assigned_set bit_of(ULO variable) { return ULO(1) << (variable % 64); }

// Stands where an instruction's slot is empty.
void no_handler(const ULO *, kestrin_data *)
{
    fatal(site::NO_HANDLER, "The program has reached an instruction without a handler.");
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
    const variant *form = nullptr; // if it is arithmetic
};

value_use known_use(value_use use) { return the_engine.moves ? use : value_use::OPERAND; }

// What a node may want to know of the place that it stands in.
struct node_place {
    value_use use = value_use::OPERAND;
    assigned_set later = 0; // variables that later operands of its parent assign
};

// The variables of a function that hold answers of MAPCAR. Where a variable is only assigned, and
// read by constant indices, members that show the code are made if one of their kind is read.
class mapcar_answers {
public:
    // A leaf that reads a variable, whatever for.
    void note_read(ULO variable) { shown_ |= bit_of(variable); }
    // A linked node with a variable in front.
    void note_use(const ULO *p, group_set groups, const image::node_words &words, value_use use);
    // At the end of a function.
    void settle(ULO arguments);

private:
    void note_member(ULO variable, const ULO *index);

    assigned_set shown_ = 0;                   // perhaps as a whole, or a text of them
    assigned_set code_ = 0;                    // the compiled or linked words
    std::vector<std::pair<ULO *, ULO>> calls_; // MAPCAR nodes and their variables
};

void mapcar_answers::note_member(ULO variable, const ULO *index)
{
    const ULO member = is_node(index, func__dummy_i) ? index[1] : ULO(MAPCAR_TYPED);
    if (member == MAPCAR_COMPILED || member == MAPCAR_LINKED)
        code_ |= bit_of(variable);
    else if (member >= MAPCAR_PROCESSED && member <= MAPCAR_DECOMPILED)
        note_read(variable);
}

void mapcar_answers::note_use(const ULO *p, group_set groups, const image::node_words &words,
                              value_use use)
{
    const ULO variable = p[words.variable];
    ULO *operand = reinterpret_cast<ULO *>(p[words.operands]);
    if (groups & in(GROUP_INDEX))
        note_member(variable, operand);
    else if (!(groups & in(GROUP_SETQ)) || use != value_use::UNUSED)
        note_read(variable);
    else if (is_node(operand, func__mapcar))
        calls_.emplace_back(operand, variable);
}

void mapcar_answers::settle(ULO arguments)
{
    for (const auto &[node, variable] : calls_) {
        if (!the_engine.small_arrays || variable < arguments || (shown_ & bit_of(variable)))
            continue;
        const bool with_code = code_ & bit_of(variable);
        set_handler(node, with_code ? func__mapcar_without_texts : func__mapcar_without_code);
    }
    *this = {};
}

class linker {
public:
    void link_image(ULO *p, ULO scope);

private:
    linked_node link_any(ULO *node, node_place place);
    void link_leaf(ULO *node, fcall handler, node_place place);
    linked_node link_node(ULO *p, node_place place);
    linked_node link_operands(ULO *p, const image::node_words &words, node_place place);
    image::node_words link_words(ULO *p, group_set *groups);
    image::node_words link_call(ULO *p, ULO payload, CHR letter);

    std::vector<ULO> udf_table_; // addresses of the images in scope
    ULO arguments_ = 0;          // of the function that is linked
    mapcar_answers answers_;     // in it
};

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
    if (groups & ASSIGNS) return bit_of(p[words.variable]);
    if (groups & SETS_VARIABLE) return bit_of(reinterpret_cast<const ULO *>(p[words.operands])[1]);
    return 0;
}

// The words of a node other than its operands, linked.
image::node_words linker::link_words(ULO *p, group_set *groups)
{
    const CHR letter = image::letter_of(*p);
    const ULO payload = image::payload_of(*p);
    if (letter == 'L' || letter == 'G') return link_call(p, payload, letter);
    if (letter == 't') {
        const INSTRUCTION_STRU &row = isaext_table[image::row_of(payload)];
        set_handler(p, row.func_ptr);
        return image::words_of_instruction(row.operands, false);
    }
    if (letter != 'T') return {};
    const isa_row &row = isa_table[image::row_of(payload)];
    *groups = groups_of(row);
    set_handler(p, row.slots[image::slot_of(payload)]);
    return image::words_of_instruction(row.operands, *groups & VARIABLE_FIRST);
}

// A variable that is passed by alias keeps its value for the call, so it is copied where a later
// argument may assign it. A local one that the function answers gives its value away.
void linker::link_leaf(ULO *node, fcall handler, node_place place)
{
    const bool is_read = strchr("Vifsz", image::letter_of(*node)) != nullptr;
    if (is_read || handler == func__getval_ptr) answers_.note_read(node[1]);
    if (handler == func__getval_ptr && (place.later & bit_of(node[1])))
        handler = func__getval;
    else if (is_read && place.use == value_use::ANSWER && node[1] >= arguments_)
        handler = func__getval_last;
    set_handler(node, handler);
}

linked_node linker::link_any(ULO *node, node_place place)
{
    const fcall leaf = leaf_handler(image::letter_of(*node));
    if (leaf == nullptr) return link_node(node, place);
    link_leaf(node, leaf, place);
    return {};
}

// From the last to the first, so that each knows what later ones assign. Returns what they all
// assign, and the form of the first of them.
linked_node linker::link_operands(ULO *p, const image::node_words &words, node_place place)
{
    const fcall handler = reinterpret_cast<fcall>(*p);
    const ULO count = words.count != 0 ? p[words.count] : words.declared;
    linked_node all;
    for (ULO i = count; i-- > 0;) {
        const value_use use = known_use(use_of_operand(handler, i, count, place.use));
        ULO *word = p + words.operands + i, *node = word + *word;
        *word = reinterpret_cast<ULO>(node);
        const linked_node operand = link_any(node, {use, all.assigned});
        all = {all.assigned | operand.assigned, operand.form};
    }
    return all;
}

// The form of a node that lends, or changes a text where it stands, while nothing assigns the
// variable in its word 1, or that takes its operand's value; NULL if there is none.
fcall moving_form(const ULO *p, node_place place, assigned_set by_operands)
{
    if (place.use == value_use::ARGUMENT) {
        const fcall lending = lending_form(p);
        return lending != nullptr && !(place.later & bit_of(p[1])) ? lending : nullptr;
    }
    if (place.use != value_use::UNUSED) return nullptr;
    const fcall appending = appending_form(p);
    if (appending != nullptr && !(by_operands & bit_of(p[1]))) return appending;
    const fcall taking = taking_setq(p);
    return taking != nullptr ? taking : taking_arsetq(p);
}

void watch(ULO *p) { set_handler(p, watched_form(reinterpret_cast<fcall>(*p))); }

// Chooses the handler of a linked instruction by its operands and by what becomes of its value.
// Returns its variant, if it has one.
const variant *choose_handler(ULO *p, const ULO *words, node_place place,
                              const linked_node &operands)
{
    if (operands.form != nullptr && assign_at_once(p, operands.form)) return nullptr;
    const fcall moving = moving_form(p, place, operands.assigned);
    if (moving == nullptr) return specialise(p, words);
    set_handler(p, moving);
    return nullptr;
}

linked_node linker::link_node(ULO *p, node_place place)
{
    check_stack(site::STACK_LINK);
    const bool is_instruction = image::letter_of(*p) == 'T';
    group_set groups = 0;
    const image::node_words words = link_words(p, &groups);
    const linked_node operands = link_operands(p, words, place);
    if (groups & VARIABLE_FIRST) answers_.note_use(p, groups, words, place.use);
    const variant *form =
        is_instruction ? choose_handler(p, p + words.operands, place, operands) : nullptr;
    if (the_engine.watcher != nullptr) watch(p);
    return {operands.assigned | set_by(p, groups, words), form};
}

void linker::link_image(ULO *p, ULO scope)
{
    check_stack(site::STACK_LINK);
    ULO *main_node = p + image::payload_of(*p);
    *p = reinterpret_cast<ULO>(main_node);
    for (ULO i = 0; i < p[image::UDFS]; i++) {
        ULO *entry = p + image::UDF_TABLE + i, *udf = entry + *entry;
        *entry = reinterpret_cast<ULO>(udf);
        udf_table_.push_back(*entry);
        link_image(udf, ++scope);
        udf_table_.resize(scope); // what the UDF's own scope added
    }
    arguments_ = p[image::ARGUMENTS];
    link_any(main_node, {known_use(value_use::ANSWER)});
    answers_.settle(arguments_);
}

} // namespace

void kestrin_link(CHR *code)
{
    forget_native(code, len(code)); // of other code that stood there
    linker().link_image(reinterpret_cast<ULO *>(code), 0);
}
