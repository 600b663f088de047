// The compiler: one walk over the tree, nodes emitted into a vector of words as they are met. The
// main node of a function goes to the words of its depth, so that a definition in the midst of it
// is compiled beside it; all is laid out in its order at the end.
//
// Text behind the driver's bindings may be anything that a command-line word brought in. Code is
// sound all the same: what can't be an operand becomes nil, and missing operands are filled in with
// nil.

#include "bytecode/compile.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "bytecode/used_names.h"
#include "frontend/isa.h"
#include "frontend/token.h"
#include "frontend/varlist.h"
#include "frontend/words.h"
#include "kestrin/strings.h"
#include "strings/large_pages.h"
#include "strings/scratch.h"
#include "strings/tokens.h"
#include "vm/engine.h"
#include "vm/image.h"
#include "vm/machine.h"
#include "vm/stack.h"

FATAL_SITE(STACK_COMPILE, "kestrin", "kestrin_compile", 126)

namespace {

// Words that grow by reallocation, which moves a large block without touching it.
class words {
public:
    words() = default;
    ~words() { free_string(&block_); }
    words(const words &) = delete;
    words &operator=(const words &) = delete;
    ULO size() const { return size_; }
    void clear() { size_ = 0; }
    ULO *data() const { return reinterpret_cast<ULO *>(block_); }
    ULO &operator[](ULO i) { return data()[i]; }
    void push_back(ULO word)
    {
        resize(size_ + 1);
        data()[size_ - 1] = word;
    }
    // What is added is to be written.
    void resize(ULO size)
    {
        if (size > capacity_) reserve(std::max(size, 2 * capacity_ + 16));
        size_ = size;
    }
    void reserve(ULO size)
    {
        capacity_ = size;
        mk_fst_buff(&block_, size * sizeof(ULO));
        use_large_pages(block_, size * sizeof(ULO));
    }
    // Hands the words over as a counted string.
    void move_to(CHR **code)
    {
        mk_fst_buff(&block_, size_ * sizeof(ULO));
        std::swap(*code, block_);
        free_string(&block_);
        size_ = capacity_ = 0;
    }

private:
    CHR *block_ = nullptr;
    ULO size_ = 0, capacity_ = 0;
};

// A function.
struct unit {
    unit *parent = nullptr; // the function that it is defined in
    ULO slots = 0, arguments = 0;
    words *code = nullptr;                    // of its depth
    ULO main_node = 0, main_words = 0;        // in them
    std::uint32_t debug = 0, debug_words = 0; // in the words of all debug texts
    std::uint32_t udfs = 0;
    ULO udf_words = 0; // of their images
    ULO number = 0;    // among its parent's UDFs
    ULO start = 0;     // of its image: among those of its parent's UDFs, then in the whole
    ULO udf_start() const { return start + image::UDF_TABLE + udfs + debug_words; }
    ULO image_node() const { return udf_start() + udf_words; }
    ULO end() const { return image_node() + main_words; }
};

// An instruction or a call, before its operands are known.
struct call_node {
    CHR letter = 0; // T, t, L, G; 0 for a word that nothing knows
    ULO code = 0;
    ULO udf = 0;      // L, G: number
    SLO operands = 0; // T, t: declared, -1 any number
    group_set groups = 0;
    bool variable_first() const { return (groups & VARIABLE_FIRST) != 0; }
    bool is_udf() const { return letter == 'L' || letter == 'G'; }
    bool counted() const { return is_udf() || operands < 0; }
};

// It may be used again and again, so that a short text costs few allocations.
class compiler {
public:
    void run(tree *program, UCH debug_level, std::string_view name, CHR **code,
             std::vector<code_place> *places);

private:
    void begin();
    const node &at(node_index n) const { return tree_->nodes[n]; }
    unit &compile_function(node_index form, unit *parent);
    void define(node_index definition, unit *function);
    bool is_definition(const node &n) const;
    call_node find_call(const node &form);
    void find_udf(name_id name, call_node *node);
    ULO find_global(name_id name);
    ULO count_operands(node_index first, const call_node &call) const;
    bool slot_of(const node &n, const unit *function, ULO *slot) const;
    void emit_form(const node &form, unit *function);
    void emit_operands(node_index first, const call_node &call, unit *function);
    void emit_operand(const node &n, const call_node &call, unit *function);
    void note_use(name_id name);
    void append_used(CHR letter, std::string *text);
    std::string debug_text() const;
    void add_debug_text(unit *function, std::string_view text);
    void note_place(const node &n, const unit *function);
    void settle_places();
    void lay_out(unit *function, ULO *image) const;

    tree *tree_ = nullptr;
    UCH debug_level_ = 0;
    std::vector<code_place> *places_ = nullptr; // NULL: nobody asks
    std::vector<const unit *> place_units_;     // of each; its word counts as in the unit's words
    std::string path_;                          // scoped name of the function
    varlist variables_;
    std::deque<unit> units_;                        // as they were met, the root first
    std::deque<words> code_ = std::deque<words>(1); // main nodes by depth
    ULO depth_ = 0;
    words debug_;
    scoped<ULO> local_udfs_, global_udfs_; // numbers from 1
    std::vector<name_id> local_names_;     // of those in scope, by number
    scoped<bool> used_;                    // names of the lists of used ones, as first met
    std::string used_text_;
};

void append_text_words(words *out, std::string_view text)
{
    const ULO from = out->size();
    out->resize(from + image::words_of_text(text.size()));
    (*out)[out->size() - 1] = 0;
    if (!text.empty()) memcpy(out->data() + from, text.data(), text.size());
}

void emit_nil(words *out) { out->push_back(image::code('Z')); }

void emit_bytes(std::string_view bytes, words *out)
{
    out->push_back(image::code('S'));
    out->push_back(bytes.size());
    append_text_words(out, bytes);
}

void emit_string(std::string_view constant, words *out)
{
    constant = inside(constant);
    if (constant.find('\\') == constant.npos) return emit_bytes(constant, out);
    scratch raw;
    assign(&raw.s, constant);
    emit_bytes(view(strraw(&raw.s, raw.s)), out);
}

void emit_value(CHR letter, ULO value, words *out)
{
    out->push_back(image::code(letter));
    out->push_back(value);
}

CHR read_letter(CHR suffix)
{
    return slot_of_suffix(suffix) == 0 ? 'V' : static_cast<CHR>(suffix + 32);
}

bool compiler::slot_of(const node &n, const unit *function, ULO *slot) const
{
    if (n.letter == 'P') {
        const SLO number = tree_->argument_number(n);
        *slot = static_cast<ULO>(number - 1);
        return number > 0 && ULO(number) <= function->arguments;
    }
    if (!variables_.find(n, slot)) return false;
    *slot += function->arguments;
    return true;
}

// -- Places ------------------------------------------------------------------------------------

// The next node to be emitted is that of `n`.
void compiler::note_place(const node &n, const unit *function)
{
    if (places_ == nullptr) return;
    places_->push_back({function->code->size(), static_cast<node_index>(&n - tree_->nodes.data())});
    place_units_.push_back(function);
}

// Turns words of the units into words of the image.
void compiler::settle_places()
{
    if (places_ == nullptr) return;
    for (ULO i = 0; i < places_->size(); i++) {
        const unit *made = place_units_[i];
        (*places_)[i].word += made->image_node() - made->main_node;
    }
    std::sort(places_->begin(), places_->end(),
              [](const code_place &a, const code_place &b) { return a.word < b.word; });
}

// -- Words of a call ---------------------------------------------------------------------------

// The number of a global function, from 1; 0 if there is none.
ULO compiler::find_global(name_id name)
{
    if (global_udfs_.mark() == 0) {
        ULO number = 0;
        for (const udf_letter &global : the_engine.global_udf_types)
            global_udfs_.set(names().enter(global.name), ++number);
    }
    return global_udfs_.get(name);
}

void compiler::find_udf(name_id name, call_node *node)
{
    static const ULO defun = row_of_group(GROUP_DEFUN);
    if (const ULO local = local_udfs_.get(name); local != 0) {
        node->letter = 'L';
        node->udf = local - 1;
    } else if (const ULO global = find_global(name); global != 0) {
        node->letter = 'G';
        node->udf = global - 1;
        note_use(name);
    } else
        return;
    node->code = image::code(node->letter, image::instruction(defun, 0));
}

call_node compiler::find_call(const node &form)
{
    call_node node;
    const instruction_word *found = word_of(form.name);
    if (found == nullptr) {
        find_udf(form.name, &node);
        return node;
    }
    const ULO slot = found->letter == 'T' ? slot_of_suffix(form.suffix) : 0;
    node.letter = found->letter;
    node.operands = found->operands;
    node.code = image::code(found->letter, image::instruction(found->row, slot));
    node.groups = found->groups;
    if (debug_level_ == 1) note_use(form.name);
    return node;
}

// -- Operands ----------------------------------------------------------------------------------

bool compiler::is_definition(const node &n) const
{
    return n.letter == 'U' && n.suffix == 0 && (groups_of(word_of(n.name)) & in(GROUP_DEFUN)) != 0;
}

// Entries of the operand table. A definition leaves no code where it stands, but one that ends a
// list of any number of operands leaves the empty string.
ULO compiler::count_operands(node_index first, const call_node &call) const
{
    ULO count = 0;
    bool ends_in_definition = false;
    for (node_index i = first; i != NO_NODE; i = at(i).next) {
        ends_in_definition = is_definition(at(i));
        count += !ends_in_definition;
    }
    if (ends_in_definition && call.operands < 0) count++;
    const SLO declared = call.counted() ? 0 : call.operands - call.variable_first();
    return declared > SLO(count) ? ULO(declared) : count;
}

void compiler::emit_operand(const node &n, const call_node &call, unit *function)
{
    words *out = function->code;
    const auto text = [&] { return tree_->text_of(n); };
    switch (n.letter) {
    case 'U': return emit_form(n, function);
    case 'F': return emit_value('F', std::bit_cast<ULO>(atof(std::string(text()).c_str())), out);
    case 'I': return emit_value('I', static_cast<ULO>(leading_number(text())), out);
    case 'Z': return emit_nil(out);
    case 'S': return n.is_raw ? emit_bytes(text(), out) : emit_string(text(), out);
    default: break;
    }
    ULO slot = 0;
    note_place(n, function);
    if (!slot_of(n, function, &slot)) return emit_nil(out);
    emit_value(call.is_udf() ? 'P' : read_letter(n.suffix), slot, out);
}

void compiler::emit_operands(node_index first, const call_node &call, unit *function)
{
    words &out = *function->code;
    const ULO count = count_operands(first, call), table = out.size();
    if (call.counted()) out[table - 1] = count;
    out.resize(table + count);
    ULO entry = table;
    for (node_index i = first; i != NO_NODE; i = at(i).next) {
        if (is_definition(at(i))) {
            define(i, function);
            continue;
        }
        out[entry] = out.size() - entry;
        entry++;
        emit_operand(at(i), call, function);
    }
    for (; entry < table + count; entry++) {
        out[entry] = out.size() - entry;
        call.operands < 0 ? emit_bytes("", &out) : emit_nil(&out);
    }
}

void compiler::emit_form(const node &form, unit *function)
{
    check_stack(site::STACK_COMPILE);
    words *out = function->code;
    const call_node call = find_call(form);
    note_place(form, function);
    node_index first = form.first;
    ULO slot = 0;
    if (call.groups & (SETS_VARIABLE | READS_ARRAY)) {
        if (first == NO_NODE || !slot_of(at(first), function, &slot)) return emit_nil(out);
        // A UDF's argument may be lent by its caller: no checked text assigns one.
        if ((call.groups & SETS_VARIABLE) && at(first).letter == 'P' && function->parent != nullptr)
            return emit_nil(out);
        if (call.variable_first()) first = at(first).next;
    }
    if (call.letter == 0) return emit_nil(out);
    out->push_back(call.code);
    if (call.is_udf()) out->push_back(call.udf);
    if (call.variable_first()) out->push_back(slot);
    if (call.counted()) out->push_back(0);
    emit_operands(first, call, function);
}

// -- Functions ---------------------------------------------------------------------------------

// A definition: it goes to the UDFs of the function that it stands in.
void compiler::define(node_index definition, unit *function)
{
    const node_index name = at(definition).first;
    const node_index body = name == NO_NODE ? NO_NODE : at(name).next;
    const ULO path_size = path_.size();
    const name_id udf = names().enter(name == NO_NODE ? "" : tree_->token_of(at(name)));
    path_.append(":").append(names().text(udf));
    local_names_.push_back(udf);
    const ULO scope = local_names_.size();
    if (local_udfs_.get(udf) == 0) local_udfs_.set(udf, scope);
    unit &own = compile_function(body, function);
    for (; local_names_.size() > scope; local_names_.pop_back())
        local_udfs_.set(local_names_.back(), 0);
    path_.resize(path_size);
    own.number = function->udfs++;
    own.start = std::exchange(function->udf_words, function->udf_words + own.end());
}

void compiler::note_use(name_id name)
{
    if (debug_level_ != 0 && !used_.get(name)) used_.set(name, true);
}

// The list of all global functions (G), ISA (T) or ISAext (t) instructions in use.
void compiler::append_used(CHR letter, std::string *text)
{
    begin_used_names(text);
    for (ULO i = 0, count = used_.mark(); i < count; i++) {
        const auto name = static_cast<name_id>(used_.changed(i));
        const instruction_word *word = word_of(name);
        if (letter != (word == nullptr ? 'G' : word->letter)) continue;
        if (word == nullptr)
            append_used_name(names().text(name), {SLO(global_udfs_.get(name) - 1)}, text);
        else
            append_used_name(names().text(name), {SLO(word->row), word->operands}, text);
    }
    end_used_names(text);
}

// The function's name and those of its variables.
std::string compiler::debug_text() const
{
    std::string text = path_;
    for (const name_id name : variables_.variables()) text.append(" ").append(names().text(name));
    return text;
}

void compiler::add_debug_text(unit *function, std::string_view text)
{
    function->debug = static_cast<std::uint32_t>(debug_.size());
    if (!text.empty()) append_text_words(&debug_, text);
    function->debug_words = static_cast<std::uint32_t>(debug_.size()) - function->debug;
}

unit &compiler::compile_function(node_index form, unit *parent)
{
    check_stack(site::STACK_COMPILE);
    if (form == NO_NODE || at(form).letter != 'U') form = tree_->opened(form, TYPED);
    if (depth_ == code_.size()) code_.emplace_back();
    words *code = &code_[depth_];
    unit &made = units_.emplace_back();
    made.parent = parent;
    made.slots = variables_.build_varlist(*tree_, form);
    made.arguments = variables_.arguments();
    made.code = code;
    made.main_node = code->size();
    const std::string own_text = debug_level_ == 0 ? std::string() : debug_text();
    depth_++;
    emit_form(at(form), &made);
    depth_--;
    variables_.leave();
    made.main_words = code->size() - made.main_node;
    used_text_.clear();
    if (parent == nullptr && debug_level_ != 0)
        for (const CHR letter : {'G', 'T', 't'}) append_used(letter, &used_text_);
    add_debug_text(&made, used_text_.append(own_text));
    return made;
}

// Writes a function to its place in the image, behind the one that it is defined in. The root's
// main node goes to the end of the words that it stands in.
void compiler::lay_out(unit *function, ULO *image) const
{
    if (const unit *parent = function->parent) {
        const ULO entry = parent->start + image::UDF_TABLE + function->number;
        function->start += parent->udf_start();
        image[entry] = function->start - entry;
    }
    const ULO *main_node = function->code->data() + function->main_node;
    memmove(image + function->image_node(), main_node, function->main_words * sizeof(ULO));
    ULO *header = image + function->start;
    header[image::MAIN_NODE] = image::code('U', function->image_node() - function->start);
    header[image::SLOTS] = function->slots;
    header[image::ARGUMENTS] = function->arguments;
    header[image::UDFS] = function->udfs;
    std::copy_n(debug_.data() + function->debug, function->debug_words,
                header + image::UDF_TABLE + function->udfs);
}

// Nothing of the program before is left.
void compiler::begin()
{
    units_.clear();
    place_units_.clear();
    for (words &of_depth : code_) of_depth.clear();
    debug_.clear();
    local_udfs_.clear();
    global_udfs_.clear();
    local_names_.clear();
    used_.clear();
}

void compiler::run(tree *program, UCH debug_level, std::string_view name, CHR **code,
                   std::vector<code_place> *places)
{
    begin();
    tree_ = program;
    debug_level_ = debug_level;
    places_ = places;
    path_ = name;
    words &image = code_[0];
    image.reserve(3 * tree_->nodes.size() + 16); // what most programs take
    if (places_ != nullptr) places_->clear();
    image.resize(compile_function(tree_->root, nullptr).end());
    for (unit &function : units_) lay_out(&function, image.data());
    settle_places();
    image.move_to(code);
}

} // namespace

void kestrin_compile(tree *program, UCH debug_level, const CHR *name, CHR **code,
                     std::vector<code_place> *places)
{
    const std::string_view own_name = name == nullptr ? "Main" : name;
    if (program->nodes.size() > 4096) // of a large program nothing is kept
        return compiler().run(program, debug_level, own_name, code, places);
    of_thread<compiler>().run(program, debug_level, own_name, code, places);
}
