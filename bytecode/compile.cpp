// The compiler: one walk over the text, nodes emitted into a vector of words as they are met. A
// form is walked twice, first to count its operands, whose table precedes their bodies.
//
// Text behind the driver's bindings may be anything that a command-line word brought in. Code is
// sound all the same: what can't be an operand becomes nil, and missing operands are filled in with
// nil.

#include "bytecode/compile.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "frontend/isa.h"
#include "frontend/token.h"
#include "frontend/varlist.h"
#include "frontend/walk.h"
#include "frontend/words.h"
#include "kestrin/strings.h"
#include "strings/scratch.h"
#include "vm/engine.h"
#include "vm/image.h"
#include "vm/stack.h"

namespace {

using words = std::vector<ULO>;

// A list of names in the form that the debug text holds: framed by 0xFF, fields separated by 0xFE.
class used_list {
public:
    void add(std::string_view name, std::initializer_list<SLO> fields)
    {
        if (!seen_.emplace(name, true).second) return;
        if (text_.empty()) text_.push_back('\xFF');
        text_.append(name);
        for (SLO field : fields) text_.append("\xFE").append(std::to_string(field));
        text_.push_back('\xFF');
    }
    std::string framed() const { return "(" + text_ + ")"; }

private:
    std::string text_;
    std::unordered_map<std::string, bool> seen_;
};

// A compiled function. Its parts stay apart until the whole image is laid out, so that the code of
// a deeply nested definition is copied once and not once for each level.
struct unit {
    ULO slots = 0, arguments = 0;
    ULO size = 0; // of its image, in words
    std::vector<unit> udfs;
    words debug, main_node;
};

// The function that is being compiled.
struct context {
    const std::string &name; // scoped
    bool is_root;
    varlist variables;
    ULO udf_counter; // number of the next UDF defined here
    std::vector<unit> udfs;
};

// An instruction or a call, before its operands are known.
struct call_node {
    CHR letter = 0; // T, t, L, G; 0 for a word that nothing knows
    ULO code = 0;
    ULO udf = 0;      // L, G: number
    SLO operands = 0; // T, t: declared, -1 any number
    bool variable_first = false;
    bool leads_with_variable = false; // FOR: operand 0 is a variable's node
    bool assigns = false;             // that variable
    bool counted() const { return letter == 'L' || letter == 'G' || operands < 0; }
};

class compiler {
public:
    compiler(std::string_view text, UCH debug_level)
        : text_(text), brackets_(text), debug_level_(debug_level)
    {
    }
    unit run(const std::string &name) { return compile_function(text_, name, 0, true); }

private:
    token_walk walk_form(std::string_view form) const
    {
        const ULO from = static_cast<ULO>(form.data() - text_.data()) + 1;
        const ULO to = from + form.size() - 1;
        return token_walk(text_, brackets_, from, to > from ? to - 1 : from);
    }
    unit compile_function(std::string_view form, const std::string &name, ULO udf_counter,
                          bool top);
    void define(token_walk walk, context *function);
    bool is_definition(std::string_view token) const;
    call_node find_call(std::string_view head);
    void find_udf(std::string_view name, call_node *node);
    bool find_global(std::string_view name, ULO *number);
    ULO count_operands(token_walk walk, const call_node &node) const;
    void emit_form(std::string_view form, context *function, words *out);
    void emit_operands(token_walk walk, const call_node &node, context *function, words *out);
    void emit_operand(std::string_view token, const call_node &node, context *function, words *out);
    void emit_variable(std::string_view token, const call_node &node, context *function,
                       words *out);
    std::string debug_text(const context &function, bool top) const;

    std::string_view text_;
    brackets brackets_;
    UCH debug_level_;
    std::unordered_map<std::string_view, ULO> local_udfs_;
    std::vector<std::string_view> local_names_; // of local_udfs_, in order of definition
    std::unordered_map<std::string_view, ULO> global_udfs_;
    bool has_global_udfs_ = false;
    used_list used_global_, used_isa_, used_isaext_;
};

void append_text_words(words *out, std::string_view text)
{
    const ULO from = out->size();
    out->resize(from + image::words_of_text(text.size()));
    if (!text.empty()) memcpy(out->data() + from, text.data(), text.size());
}

void emit_nil(words *out) { out->push_back(image::code('Z')); }

void emit_string(std::string_view constant, words *out)
{
    constant = constant.size() < 2 ? std::string_view() : constant.substr(1, constant.size() - 2);
    scratch raw;
    if (constant.find('\\') != constant.npos) {
        assign(&raw.s, constant);
        constant = view(strraw(&raw.s, raw.s));
    }
    out->push_back(image::code('S'));
    out->push_back(constant.size());
    append_text_words(out, constant);
}

void emit_float(std::string_view token, words *out)
{
    const DFL value = atof(std::string(token).c_str());
    ULO bits = 0;
    memcpy(&bits, &value, sizeof bits);
    out->push_back(image::code('F'));
    out->push_back(bits);
}

void emit_integer(std::string_view token, words *out)
{
    out->push_back(image::code('I'));
    out->push_back(static_cast<ULO>(atol(std::string(token).c_str())));
}

CHR read_letter(std::string_view token)
{
    const CHR suffix = suffix_of(token);
    return suffix != 0 && strchr("IFSZ", suffix) != nullptr ? static_cast<CHR>(suffix + 32) : 'V';
}

bool slot_number(std::string_view token, const varlist &variables, ULO *slot)
{
    if (token.front() == '$') {
        const SLO number = atol(std::string(token.substr(1)).c_str());
        *slot = static_cast<ULO>(number - 1);
        return number > 0 && ULO(number) <= variables.arguments;
    }
    const auto found = variables.numbers.find(token);
    if (found == variables.numbers.end()) return false;
    *slot = found->second;
    return true;
}

// -- Words of a call ---------------------------------------------------------------------------

ULO row_of_defun()
{
    for (ULO i = 0; i < isa_count; i++)
        if (cmp_mnm(view(*isa_table[i].mnemonic), group_string(GROUP_DEFUN))) return i;
    return 0;
}

bool compiler::find_global(std::string_view name, ULO *number)
{
    if (!has_global_udfs_) {
        has_global_udfs_ = true;
        std::string_view rest = view(the_engine.global_udf_index);
        while (rest.size() > 1) {
            rest.remove_prefix(1);
            const auto split = rest.find('\xFE'), end = rest.find('\xFF');
            if (split == rest.npos || end == rest.npos) break;
            const std::string digits(rest.substr(split + 1, end - split - 1));
            global_udfs_.try_emplace(rest.substr(0, split), atol(digits.c_str()));
            rest.remove_prefix(end);
        }
    }
    const auto found = global_udfs_.find(name);
    if (found == global_udfs_.end()) return false;
    *number = found->second;
    return true;
}

void compiler::find_udf(std::string_view name, call_node *node)
{
    static const ULO defun = row_of_defun();
    const auto local = local_udfs_.find(name);
    if (local != local_udfs_.end()) {
        node->letter = 'L';
        node->udf = local->second;
    } else if (find_global(name, &node->udf)) {
        node->letter = 'G';
        if (debug_level_ > 0) used_global_.add(name, {SLO(node->udf)});
    } else
        return;
    node->code = image::code(node->letter, image::instruction(defun, 0));
}

call_node compiler::find_call(std::string_view head)
{
    call_node node;
    const ULO slot = slot_of_suffix(suffix_of(head));
    head = without_suffix(head);
    const instruction_word *found = find_word(head);
    if (found == nullptr) {
        find_udf(head, &node);
        return node;
    }
    node.letter = found->letter;
    node.operands = found->operands;
    node.code =
        image::code(found->letter, image::instruction(found->row, found->letter == 'T' ? slot : 0));
    node.variable_first = (found->groups & variable_first) != 0;
    node.leads_with_variable = (found->groups & in(GROUP_FOR)) != 0;
    node.assigns = found->groups != 0 && !(found->groups & (in(GROUP_INDEX) | in(GROUP_ALINDEX)));
    if (debug_level_ == 1)
        (found->letter == 'T' ? used_isa_ : used_isaext_)
            .add(head, {SLO(found->row), found->operands});
    return node;
}

// -- Operands ----------------------------------------------------------------------------------

bool compiler::is_definition(std::string_view token) const
{
    return token.front() == '(' && (word_groups(walk_form(token).next()) & in(GROUP_DEFUN)) != 0;
}

// Entries of the operand table. A definition leaves no code where it stands, but one that ends a
// list of any number of operands leaves the empty string.
ULO compiler::count_operands(token_walk walk, const call_node &node) const
{
    ULO count = 0;
    bool ends_in_definition = false;
    for (auto token = walk.next(); !token.empty(); token = walk.next()) {
        ends_in_definition = is_definition(token);
        count += !ends_in_definition;
    }
    if (ends_in_definition && node.operands < 0) count++;
    const SLO declared = node.counted() ? 0 : node.operands - node.variable_first;
    return declared > SLO(count) ? ULO(declared) : count;
}

void compiler::emit_variable(std::string_view token, const call_node &node, context *function,
                             words *out)
{
    ULO slot = 0;
    if (!slot_number(token, function->variables, &slot)) return emit_nil(out);
    const bool by_alias = node.letter == 'L' || node.letter == 'G';
    out->push_back(image::code(by_alias ? 'P' : read_letter(token)));
    out->push_back(slot);
}

void compiler::emit_operand(std::string_view token, const call_node &node, context *function,
                            words *out)
{
    switch (kestrin_type1(token)) {
    case 'U': return emit_form(token, function, out);
    case 'F': return emit_float(token, out);
    case 'I': return emit_integer(token, out);
    case 'Z': return emit_nil(out);
    case 'S': return emit_string(token, out);
    default: return emit_variable(token, node, function, out);
    }
}

void compiler::emit_operands(token_walk walk, const call_node &node, context *function, words *out)
{
    const ULO count = count_operands(walk, node), table = out->size();
    if (node.counted()) out->at(table - 1) = count;
    out->resize(table + count);
    ULO entry = table;
    for (auto token = walk.next(); !token.empty(); token = walk.next()) {
        if (is_definition(token)) {
            define(walk_form(token), function);
            continue;
        }
        out->at(entry) = out->size() - entry;
        entry++;
        emit_operand(token, node, function, out);
    }
    for (; entry < table + count; entry++) {
        out->at(entry) = out->size() - entry;
        node.operands < 0 ? emit_string("\"\"", out) : emit_nil(out);
    }
}

void compiler::emit_form(std::string_view form, context *function, words *out)
{
    check_stack(fatal_site::STACK_COMPILE);
    token_walk walk = walk_form(form);
    const call_node node = find_call(walk.next());
    ULO slot = 0;
    if (node.variable_first || node.leads_with_variable) {
        token_walk ahead = walk;
        const std::string_view token = ahead.next();
        if (token.empty() || !slot_number(token, function->variables, &slot)) return emit_nil(out);
        // A UDF's argument may be lent by its caller: no checked text assigns one.
        if (node.assigns && token.front() == '$' && !function->is_root) return emit_nil(out);
        if (node.variable_first) walk = ahead;
    }
    if (node.letter == 0) return emit_nil(out);
    out->push_back(node.code);
    if (node.letter == 'L' || node.letter == 'G') out->push_back(node.udf);
    if (node.variable_first) out->push_back(slot);
    if (node.counted()) out->push_back(0);
    emit_operands(walk, node, function, out);
}

// -- Functions ---------------------------------------------------------------------------------

// A definition: it goes to the UDFs of the function that it stands in.
void compiler::define(token_walk walk, context *function)
{
    walk.next(); // DEFUN
    const std::string_view name = walk.next(), body = walk.next();
    local_udfs_.try_emplace(name, function->udf_counter);
    local_names_.push_back(name);
    function->udf_counter++;
    const ULO scope = local_names_.size();
    function->udfs.push_back(compile_function(body, function->name + ":" + std::string(name),
                                              function->udf_counter, false));
    for (; local_names_.size() > scope; local_names_.pop_back())
        local_udfs_.erase(local_names_.back());
}

std::string compiler::debug_text(const context &function, bool top) const
{
    if (debug_level_ == 0) return {};
    std::string text;
    if (top) text = used_global_.framed() + used_isa_.framed() + used_isaext_.framed();
    text.append(function.name);
    for (std::string_view name : function.variables.names)
        text.append(" ").append(without_suffix(name));
    return text;
}

unit compiler::compile_function(std::string_view form, const std::string &name, ULO udf_counter,
                                bool top)
{
    check_stack(fatal_site::STACK_COMPILE);
    context function = {name, top, {}, udf_counter, {}};
    const ULO from = static_cast<ULO>(form.data() - text_.data());
    build_varlist(text_, brackets_, from, from + form.size(), &function.variables);
    unit made;
    emit_form(form, &function, &made.main_node);

    const std::string debug_names = debug_text(function, top);
    if (!debug_names.empty()) append_text_words(&made.debug, debug_names);
    made.slots = function.variables.slots();
    made.arguments = function.variables.arguments;
    made.udfs = std::move(function.udfs);
    made.size = image::UDF_TABLE + made.udfs.size() + made.debug.size() + made.main_node.size();
    for (const unit &udf : made.udfs) made.size += udf.size;
    return made;
}

// Appends the image of a function to `out`.
void lay_out(const unit &function, words *out)
{
    check_stack(fatal_site::STACK_COMPILE);
    const ULO udfs = function.udfs.size();
    out->insert(out->end(), {image::code('U', function.size - function.main_node.size()),
                             function.slots, function.arguments, udfs});
    ULO distance = udfs + function.debug.size(); // from the entry to the image
    for (const unit &udf : function.udfs) {
        out->push_back(distance);
        distance += udf.size - 1;
    }
    out->insert(out->end(), function.debug.begin(), function.debug.end());
    for (const unit &udf : function.udfs) lay_out(udf, out);
    out->insert(out->end(), function.main_node.begin(), function.main_node.end());
}

} // namespace

void kestrin_compile(CHR **source, UCH debug_level, const CHR *name)
{
    compiler pass(view(*source), debug_level);
    const unit main = pass.run(name == nullptr ? "Main" : name);
    words image;
    image.reserve(main.size);
    lay_out(main, &image);
    assign(source, {reinterpret_cast<const CHR *>(image.data()), image.size() * sizeof(ULO)});
}
