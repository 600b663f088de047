// The verifier. It goes through the code on its own, as the linker and the machine will read it,
// and accepts what both can rely on. Each word of the code has at most one owner: without that,
// linking one node could change the numbers of another after they were found good.
//
// All that is read of an image once it has passed, and what makes it good:
//
// clang-format off
//   linker    header, UDF table, main node    read_layout(), verify_udfs(): inside the image
//             letter, row, slot               verify_node(), read_instruction(), read_extension()
//             operand count and table         verify_operands(): words of this node alone
//             number of a UDF                 read_call(): in scope, or in the linked global set
//             kinds of operands, for variants taken from the handlers just linked
//   run       slots of the root               a frame of that size, or the memory report
//   call      image, arguments passed         read_call(): each has a slot; the call itself writes
//                                             no more records than the frame has
//             argument by alias (P)           verify_node(): in a call only; sets_variable_at(): a
//                                             function assigns none of its formal arguments
//   leaf      number of a variable            verify_variable(): below the slots
//             length and bytes of a text      verify_string(): inside, a NUL and fill behind
//   SETQ ...  number of the variable, word 1  read_instruction(): below the slots, not lent
//   INDEX ... number of the array, word 1     read_instruction(): below the slots
//   FOR       node and number of its variable verify_operands(): a variable's node, not lent
//   reads in place (text, TYPE, INDICES)      the leaf passed, and is told by its handler
//   fused     words of the inner node         that node passed, and no other node holds it
//   typed     the type that was proved        nothing: each handler looks at the value's own type
//   errors    debug text, names in it         verify_debug_text(): ends inside; a name may lack
// clang-format on

#include "bytecode/verify.h"

#include <algorithm>

#include "bytecode/layout.h"
#include "frontend/isa.h"
#include "frontend/words.h"
#include "strings/scratch.h"
#include "vm/engine.h"
#include "vm/image.h"
#include "vm/stack.h"

FATAL_SITE(STACK_VERIFY, "kestrin", "verify_bytecode", 130)

namespace {

// What a call must know of a UDF.
struct signature {
    ULO slots, arguments;
};

// The function whose nodes are verified.
struct function {
    ULO end; // of its image
    ULO slots;
    ULO first_writable; // slots below may alias a variable of the caller
};

// Operands of a node, and what the node asks of them.
struct operand_table {
    image::node_words words;
    bool lends = false;      // variables may be passed by alias
    bool sets_first = false; // operand 0 is the variable that the node sets
};

class verifier {
public:
    explicit verifier(std::string_view code) : code_(code), claims_(code_.size()) {}
    bool run() { return verify_image(0, code_.size()); }

private:
    bool verify_image(ULO start, ULO end);
    bool verify_debug_text(const image_layout &image) const;
    bool verify_udfs(const image_layout &image);
    bool verify_node(ULO p, const function &f, bool lent);
    bool verify_variable(ULO p, const function &f);
    bool verify_string(ULO p, const function &f);
    bool read_instruction(ULO p, const function &f, operand_table *operands) const;
    bool read_extension(ULO p, operand_table *operands) const;
    bool read_call(ULO p, const function &f, operand_table *operands) const;
    bool verify_operands(ULO p, const function &f, const operand_table &operands);
    bool sets_variable_at(ULO p, const function &f) const;

    code_words code_;
    word_claims claims_;
    const ULO defun_ = row_of_group(GROUP_DEFUN);
    std::vector<signature> scope_; // UDFs by number
};

bool is_variable(CHR letter) { return letter != 0 && strchr("VifszP", letter) != nullptr; }

// The signature of a UDF of the global function set.
bool find_global(ULO number, signature *found)
{
    const CHR *code = the_engine.global_udf_code;
    if (code == nullptr || len(code) <= image::UDF_TABLE * sizeof(ULO)) return false;
    const auto *set = reinterpret_cast<const ULO *>(code);
    if (number >= set[image::UDFS]) return false;
    const auto *udf = reinterpret_cast<const ULO *>(set[image::UDF_TABLE + number]);
    *found = {udf[image::SLOTS], udf[image::ARGUMENTS]};
    return true;
}

// -- Images ------------------------------------------------------------------------------------

// C texts are made of it.
bool verifier::verify_debug_text(const image_layout &image) const
{
    const ULO bytes = (image.debug_end - image.table_end) * sizeof(ULO);
    return bytes == 0 || debug_text(code_, image).size() < bytes;
}

// Images stand in the order of the table, each up to the next one, the last up to the main node.
bool verifier::verify_udfs(const image_layout &image)
{
    const ULO table = image.start + image::UDF_TABLE;
    ULO from = image.debug_end;
    for (ULO i = 0; i < image.udfs; i++) {
        ULO to = image.main_node;
        if (i + 1 < image.udfs && !code_.follow(table + i + 1, image.main_node, &to)) return false;
        const ULO known = scope_.size();
        if (!verify_image(from, to)) return false;
        scope_.resize(known + 1); // what the UDF's own scope added
        from = to;
    }
    return true;
}

bool verifier::verify_image(ULO start, ULO end)
{
    check_stack(site::STACK_VERIFY);
    image_layout image;
    if (!read_layout(code_, start, end, &image) || !verify_debug_text(image)) return false;
    if (!claims_.take(start, image.debug_end - start)) return false;
    const bool is_root = start == 0;
    if (!is_root) scope_.push_back({image.slots, image.arguments});
    if (!verify_udfs(image)) return false;
    const function f = {end, image.slots, is_root ? 0 : image.arguments};
    return verify_node(image.main_node, f, false);
}

// -- Leaves ------------------------------------------------------------------------------------

bool verifier::verify_variable(ULO p, const function &f)
{
    return p + 1 < f.end && code_[p + 1] < f.slots && claims_.take(p, 2);
}

// The machine reads a constant as a counted string in place: with a NUL and fill behind it.
bool verifier::verify_string(ULO p, const function &f)
{
    const ULO words = words_of_string(code_, p + 1, f.end);
    if (words == 0) return false;
    const std::string_view text = code_.text(p + 2, words * sizeof(ULO));
    return text.find_first_not_of('\0', code_[p + 1]) == text.npos && claims_.take(p, 2 + words);
}

// -- Calls -------------------------------------------------------------------------------------

// Whether the variable numbered in word `p` may be assigned.
bool verifier::sets_variable_at(ULO p, const function &f) const
{
    return code_[p] >= f.first_writable && code_[p] < f.slots;
}

bool verifier::read_instruction(ULO p, const function &f, operand_table *operands) const
{
    const ULO payload = image::payload_of(code_[p]), slot = image::slot_of(payload);
    if (image::row_of(payload) >= isa_count) return false;
    const isa_row &row = isa_table[image::row_of(payload)];
    if (slot >= std::size(row.slots) || row.slots[slot] == nullptr) return false;
    const group_set groups = groups_of(row);
    if (groups & in(GROUP_DEFUN)) return false;
    operands->words = image::words_of_instruction(row.operands, groups & VARIABLE_FIRST);
    operands->sets_first = groups & in(GROUP_FOR);
    const ULO variable = p + operands->words.variable;
    if (variable == p) return true;
    if (variable >= f.end) return false;
    return groups & READS_ARRAY ? code_[variable] < f.slots : sets_variable_at(variable, f);
}

bool verifier::read_extension(ULO p, operand_table *operands) const
{
    const ULO payload = image::payload_of(code_[p]), row = image::row_of(payload);
    if (row >= isaext_count || image::slot_of(payload) != 0) return false;
    const INSTRUCTION_STRU &found = isaext_table[row];
    operands->words = image::words_of_instruction(found.operands, false);
    return found.func_ptr != nullptr && found.operands >= 0;
}

// Each formal argument that a call passes has a slot. One that is lent must not become a variable
// of the function that is called, which assigns those: beyond the formal arguments only what no
// slot takes is let through.
bool verifier::read_call(ULO p, const function &f, operand_table *operands) const
{
    const image::node_words words = image::words_of_call();
    *operands = {words, true, false};
    if (image::payload_of(code_[p]) != image::instruction(defun_, 0)) return false;
    if (p + words.count >= f.end) return false;
    const ULO number = code_[p + words.udf], passed = code_[p + words.count];
    signature called = {};
    if (image::letter_of(code_[p]) == 'G') {
        if (!find_global(number, &called)) return false;
    } else {
        if (number >= scope_.size()) return false;
        called = scope_[number];
    }
    if (passed > 0 && called.arguments > called.slots) return false;
    return passed <= called.arguments || called.slots <= called.arguments;
}

bool verifier::verify_operands(ULO p, const function &f, const operand_table &operands)
{
    const image::node_words &words = operands.words;
    const ULO first = p + words.operands;
    if (first > f.end) return false; // a count lies ahead of the first operand
    const ULO count = words.count != 0 ? code_[p + words.count] : words.declared;
    if (count > f.end - first || !claims_.take(p, words.operands + count)) return false;
    for (ULO i = 0; i < count; i++) {
        ULO node = 0;
        if (!code_.follow(first + i, f.end, &node)) return false;
        if (!verify_node(node, f, operands.lends)) return false;
        if (i > 0 || !operands.sets_first) continue;
        if (!is_variable(image::letter_of(code_[node])) || !sets_variable_at(node + 1, f))
            return false;
    }
    return count > 0 || !operands.sets_first;
}

// The node at word `p`, which lies in the image. `lent`: it is an argument of a call.
bool verifier::verify_node(ULO p, const function &f, bool lent)
{
    check_stack(site::STACK_VERIFY);
    const CHR letter = image::letter_of(code_[p]);
    operand_table operands = {};
    switch (letter) {
    case 'T': return read_instruction(p, f, &operands) && verify_operands(p, f, operands);
    case 't': return read_extension(p, &operands) && verify_operands(p, f, operands);
    case 'L':
    case 'G': return read_call(p, f, &operands) && verify_operands(p, f, operands);
    default: break;
    }
    if (image::payload_of(code_[p]) != 0) return false;
    if (is_variable(letter)) return (letter != 'P' || lent) && verify_variable(p, f);
    switch (letter) {
    case 'I':
    case 'F': return p + 1 < f.end && claims_.take(p, 2);
    case 'Z': return claims_.take(p, 1);
    case 'S': return verify_string(p, f);
    default: return false;
    }
}

} // namespace

bool verify_bytecode(std::string_view code) { return verifier(code).run(); }
