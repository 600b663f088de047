// The decompiler. Functions are written to one buffer in the order in which they must be looked at:
// a main node ahead of the UDFs of its scope, of these the last first, so that each is known to be
// called or not when its turn comes. That is the text from its last piece to its first; at the end
// the pieces are put the other way round.
//
// A UDF's number in the code is its place among the UDFs that are visible where it is called; they
// stand in a list that only shrinks while the UDFs of a scope are done from the last to the first.

#include "bytecode/decompile.h"

#include <algorithm>
#include <string>
#include <unordered_set>
#include <utility>

#include "bytecode/layout.h"
#include "bytecode/used_names.h"
#include "frontend/isa.h"
#include "frontend/token.h"
#include "frontend/words.h"
#include "kestrin/strings.h"
#include "strings/scratch.h"
#include "vm/debug_text.h"
#include "vm/image.h"
#include "vm/machine.h"
#include "vm/stack.h"

FATAL_SITE(STACK_DECOMPILE, "kestrin", "kestrin_decompile", 129)

namespace {

constexpr std::string_view UDF_PREFIX = "Udf_", GLOBAL_PREFIX = "Extern_", VARIABLE_PREFIX = "Var_",
                           ARGUMENT_PREFIX = "Arg_Var_";
constexpr std::string_view UNKNOWN_CODE = "(Unknown_Code";
constexpr const CHR *UNUSED_UDF = "' is removed from the target because this UDF is not used.\n";

// Bounds of code that another compiler made: of a name's length, and of nested functions, as
// made-up names grow with each scope.
constexpr ULO LONGEST_NAME = 255, DEEPEST_SCOPE = 200;

constexpr ULO ANY_NUMBER = ~ULO(0);

struct visible_udf {
    std::string name;
    bool is_called;
};

// The function that is being written.
struct scope {
    image_layout image;
    std::string prefix; // of made-up names of its UDFs
    ULO depth;          // 0: it is the root
};

// What is known of the instruction of a node.
struct cop {
    std::string name;
    SLO operands;
    bool is_known, is_listed;
    const CHR *table; // "ISA" or "ISAext"
};

bool is_code_letter(ULO word)
{
    const std::string_view letters = image::letters;
    return letters.find(image::letter_of(word)) != letters.npos;
}

// A number with as many digits as the highest of its kind has.
std::string padded(ULO number, ULO highest)
{
    std::string print = std::to_string(number);
    const ULO digits = std::to_string(highest).size();
    return print.insert(0, std::max(digits, print.size()) - print.size(), '0');
}

class decompiler {
public:
    decompiler(std::string_view code, decompile_mode mode, code_origin origin)
        : mode_(mode), origin_(origin), code_(code), claims_(code_.size())
    {
        out_.reserve(code.size()); // about what it takes
    }
    bool run();
    std::string text() const;
    std::string messages() const;

private:
    void write_function(const scope &function, std::string_view name);
    void write_main_node(const scope &function);
    image_layout claim_image(ULO entry, ULO depth);
    std::vector<image_layout> enter_udfs(const scope &function);
    void write_node(ULO p);
    void write_float(ULO bits);
    void write_string(ULO p);
    void write_leaf(ULO p, CHR letter);
    void write_variable(ULO slot);
    void write_target(ULO slot);
    void write_unknown_code(ULO p);
    void write_offset(ULO p);
    void write_call(ULO p, CHR letter);
    const listed_name *find_listed(const numbered_names &list, ULO number) const;
    cop find_cop(ULO p, CHR letter) const;
    void write_cop(ULO p, CHR letter);
    bool write_cop_operands(ULO p, const cop &found, ULO *behind);
    ULO write_operands(ULO from, ULO most = ANY_NUMBER, std::string_view before = " ",
                       std::string_view behind = "");
    bool test_operand(ULO entry, ULO *target) const;
    bool is_own() const { return origin_ == code_origin::OWN; }
    bool is_usable(std::string_view name) const
    {
        return !name.empty() && (is_own() || name.size() <= LONGEST_NAME);
    }
    bool is_trusted() const { return origin_ != code_origin::FOREIGN && is_good_; }
    void complain(const cop &found);
    void add_message(std::string line);
    void begin_piece() { pieces_.push_back(out_.size()); }

    const decompile_mode mode_;
    const code_origin origin_;
    code_words code_;
    word_claims claims_;
    used_names names_;
    bool is_good_ = true;
    const scope *function_ = nullptr;
    std::vector<std::string_view> variables_; // of the main node that is being written
    std::vector<visible_udf> visible_;
    std::string out_;
    std::vector<ULO> pieces_; // where they begin in it
    std::vector<std::string> messages_;
    std::unordered_set<std::string> known_messages_;
};

// -- Messages and comments ---------------------------------------------------------------------

void decompiler::add_message(std::string line)
{
    if (known_messages_.insert(line).second) messages_.push_back(std::move(line));
}

void decompiler::complain(const cop &found)
{
    is_good_ = false;
    add_message(std::string("ERROR: The specified precompiled file is precompiled for other ")
                    .append(found.table)
                    .append(" COP `(")
                    .append(found.name)
                    .append(")', trying to continue anyway...\n"));
}

void decompiler::write_offset(ULO p)
{
    if (mode_ != ENTIRE) return;
    out_.append(" (").append(mnemonic(ISA_REM)).append(" Dbg=");
    out_.append(std::to_string(p * sizeof(ULO))).append(")");
}

void decompiler::write_unknown_code(ULO p)
{
    is_good_ = false;
    out_.append(UNKNOWN_CODE);
    write_offset(p);
    out_.append(")");
    add_message("ERROR: Unknown corrupted code `(Unknown_Code)' is found, trying to continue "
                "anyway...\n");
}

// -- Leaves ------------------------------------------------------------------------------------

// As the front end wants it spelled. An infinity or a number that is none reads as a name or as
// nothing at all; only foreign code holds one.
void decompiler::write_float(ULO bits)
{
    DFL value = 0;
    memcpy(&value, &bits, sizeof value);
    scratch print;
    equ_fnum(&print.s, value);
    if (kestrin_type(view(print.s), &out_) != 0) return;
    std::string_view wanted = view(rt_ctrl->rt_run_text);
    wanted.remove_prefix(wanted.rfind(' ') + 1);
    out_.append(wanted);
    add_message(std::string("Float constant `")
                    .append(view(print.s))
                    .append("' is typed as `")
                    .append(wanted)
                    .append("' in the target.\n"));
    rt_ctrl->rt_run_flag = 0;
    equ(&rt_ctrl->rt_run_text, nullptr);
}

void decompiler::write_string(ULO p)
{
    const ULO words = words_of_string(code_, p + 1, code_.size());
    if (words == 0 || !claims_.take(p + 1, 1 + words)) return write_unknown_code(p);
    scratch text;
    assign(&text.s, code_.text(p + 2, code_[p + 1]));
    strunraw(&text.s, text.s);
    out_.append("\"").append(view(text.s)).append("\"");
}

void decompiler::write_variable(ULO slot)
{
    const ULO number = slot + 1, place = number - function_->image.arguments - 1;
    if (number <= function_->image.arguments)
        out_.append("$").append(std::to_string(number));
    else if (place < variables_.size() && is_usable(variables_[place]))
        out_.append(variables_[place]);
    else
        out_.append(VARIABLE_PREFIX).append(padded(number, function_->image.slots));
}

// A formal argument can't stand where a variable is assigned.
void decompiler::write_target(ULO slot)
{
    if (slot >= function_->image.arguments || mode_ == MINIMISED) return write_variable(slot);
    out_.append(ARGUMENT_PREFIX).append(padded(slot + 1, function_->image.slots));
}

void decompiler::write_leaf(ULO p, CHR letter)
{
    if (!claims_.take(p + 1, 1)) return write_unknown_code(p);
    const ULO value = code_[p + 1];
    if (letter == 'I') {
        out_.append(std::to_string(static_cast<SLO>(value)));
        return;
    }
    if (letter == 'F') return write_float(value);
    write_variable(value);
    write_offset(p);
}

// -- Operands ----------------------------------------------------------------------------------

// Whether word `entry` refers to a node. Where the code is not trusted the words must also look the
// part.
bool decompiler::test_operand(ULO entry, ULO *target) const
{
    if (!code_.follow(entry, code_.size(), target) || !claims_.is_free(*target)) return false;
    return is_trusted() || (!is_code_letter(code_[entry]) && is_code_letter(code_[*target]));
}

// Writes operands as long as there are any, so many at most. Returns their number.
ULO decompiler::write_operands(ULO from, ULO most, std::string_view before, std::string_view behind)
{
    ULO count = 0, target = 0;
    for (; count < most && test_operand(from + count, &target); count++) {
        out_.append(before);
        write_node(target);
        out_.append(behind);
    }
    return count;
}

// -- Calls -------------------------------------------------------------------------------------

void decompiler::write_call(ULO p, CHR letter)
{
    const image::node_words words = image::words_of_call();
    if (!claims_.take(p + 1, words.operands - 1)) return write_unknown_code(p);
    const ULO number = code_[p + words.udf], count = code_[p + words.count];
    if (letter == 'L' && number >= visible_.size()) return write_unknown_code(p);
    out_.append("(");
    if (letter == 'L') {
        visible_[number].is_called = true;
        out_.append(visible_[number].name);
    } else if (const listed_name *global = find_listed(names_.global_udfs, number))
        out_.append(global->name);
    else
        out_.append(GLOBAL_PREFIX).append(function_->prefix).append(std::to_string(number + 1));
    if (write_operands(p + words.operands, count) < count) is_good_ = false;
    out_.append(")");
}

// What the code's own list says of a number; NULL if that is nothing to go by.
const listed_name *decompiler::find_listed(const numbered_names &list, ULO number) const
{
    const auto found = list.find(number);
    return found != list.end() && is_usable(found->second.name) ? &found->second : nullptr;
}

// The list in the code's own debug text wins over the tables in force.
cop decompiler::find_cop(ULO p, CHR letter) const
{
    const ULO row = image::row_of(image::payload_of(code_[p]));
    const bool is_isa = letter == 'T';
    const CHR *table = is_isa ? "ISA" : "ISAext";
    if (const listed_name *own = find_listed(is_isa ? names_.isa : names_.isaext, row))
        return {std::string(own->name), own->operands, true, true, table};
    if (is_isa && row < isa_count)
        return {std::string(view(*isa_table[row].mnemonic)), isa_table[row].operands, true, false,
                table};
    if (!is_isa && row < isaext_count)
        return {isaext_table[row].fnc_name, isaext_table[row].operands, true, false, table};
    return {(is_isa ? "Isa_Cop_" : "IsaExt_Cop_") + std::to_string(row), 0, false, false, table};
}

// Writes the operands that the instruction declares. `*behind` is the word behind their table.
// False if one of them is missing.
bool decompiler::write_cop_operands(ULO p, const cop &found, ULO *behind)
{
    const image::node_words words =
        image::words_of_instruction(found.operands, word_groups(found.name) & VARIABLE_FIRST);
    const ULO first = p + words.operands;
    if (!claims_.take(p + 1, words.operands - 1)) return false;
    if (words.variable != 0 && found.operands > 0) {
        out_.append(" ");
        write_target(code_[p + words.variable]);
    }
    const ULO count = words.count != 0 ? code_[p + words.count] : words.declared;
    *behind = first + count;
    return write_operands(first, count) == count;
}

// Operands that the table does not know stay in the text but do nothing.
void decompiler::write_cop(ULO p, CHR letter)
{
    const cop found = find_cop(p, letter);
    out_.append("(").append(found.name);
    write_offset(p);
    ULO behind = 0;
    if (!found.is_known) {
        complain(found);
        write_operands(p + 1);
    } else if (!write_cop_operands(p, found, &behind))
        complain(found);
    else if (!found.is_listed && !is_trusted()) {
        const std::string before = std::string(" (").append(mnemonic(ISA_COMMENTS)).append(" ");
        if (write_operands(behind, ANY_NUMBER, before, ")") > 0) complain(found);
    }
    out_.append(")");
}

// The node at word `p`, which nothing has claimed.
void decompiler::write_node(ULO p)
{
    check_stack(site::STACK_DECOMPILE);
    const CHR letter = image::letter_of(code_[p]);
    if (letter == 'U' || !is_code_letter(code_[p]) || !claims_.take(p, 1))
        return write_unknown_code(p);
    switch (letter) {
    case 'T':
    case 't': return write_cop(p, letter);
    case 'L':
    case 'G': return write_call(p, letter);
    case 'S': return write_string(p);
    case 'Z': out_.append("NIL"); return;
    default: return write_leaf(p, letter);
    }
}

// -- Functions ---------------------------------------------------------------------------------

// The image that entry `entry` of a table of UDFs refers to; if there is none, an empty one whose
// main node is the entry, which is no code.
image_layout decompiler::claim_image(ULO entry, ULO depth)
{
    image_layout image = {};
    ULO start = 0;
    const bool is_sound = (is_own() || depth <= DEEPEST_SCOPE) &&
                          code_.follow(entry, code_.size(), &start) &&
                          read_layout(code_, start, code_.size(), &image) &&
                          claims_.take(start, image.debug_end - start);
    return is_sound ? image : image_layout{.main_node = entry};
}

// Makes the UDFs of a scope visible and returns their images.
std::vector<image_layout> decompiler::enter_udfs(const scope &function)
{
    std::vector<image_layout> images;
    const ULO count = function.image.udfs, table = function.image.start + image::UDF_TABLE;
    for (ULO i = 0; i < count; i++) {
        images.push_back(claim_image(table + i, function.depth + 1));
        std::string_view debug = debug_text(code_, images[i]);
        const std::string_view name = own_name(take_word(&debug));
        visible_.push_back(
            {is_usable(name) ? std::string(name) : function.prefix + padded(i + 1, count), false});
    }
    return images;
}

void decompiler::write_main_node(const scope &function)
{
    function_ = &function;
    variables_.clear();
    std::string_view names = debug_text(code_, function.image);
    if (function.depth == 0) names_ = take_used_names(&names);
    take_word(&names); // its own
    for (auto name = take_word(&names); !name.empty(); name = take_word(&names))
        variables_.push_back(name);
    if (claims_.is_free(function.image.main_node))
        write_node(function.image.main_node);
    else
        write_unknown_code(function.image.main_node);
}

// The main node comes first and the last UDF next: the calls in a UDF that is kept mark those
// before it, and what only removed UDFs call is removed too. Messages about removed UDFs stand
// ahead of the scope's own.
void decompiler::write_function(const scope &function, std::string_view name)
{
    check_stack(site::STACK_DECOMPILE);
    const ULO known = visible_.size();
    const SLO first_message = SLO(messages_.size());
    const std::vector<image_layout> images = enter_udfs(function);
    begin_piece();
    write_main_node(function);
    out_.append(function.depth == 0 ? ")" : ")) ");
    std::vector<std::string> removed;
    for (ULO i = images.size(); i > 0; i--) {
        visible_.resize(known + i);
        const visible_udf udf = visible_.back();
        if (mode_ == ENTIRE || udf.is_called) {
            write_function({images[i - 1], function.prefix + padded(i, images.size()) + "_",
                            function.depth + 1},
                           udf.name);
            continue;
        }
        std::string line = "UDF `" + udf.name + UNUSED_UDF;
        if (known_messages_.insert(line).second) removed.push_back(std::move(line));
    }
    visible_.resize(known);
    messages_.insert(messages_.begin() + first_message, removed.rbegin(), removed.rend());
    begin_piece();
    if (function.depth != 0)
        out_.append("(").append(mnemonic(ISA_DEFUN)).append(" ").append(name).append(" ");
    out_.append("(").append(mnemonic(ISA_PROGN)).append(" ");
}

bool decompiler::run()
{
    scope root = {{}, std::string(UDF_PREFIX), 0};
    if (!read_layout(code_, 0, code_.size(), &root.image)) root.image = {};
    claims_.take(0, std::max(root.image.debug_end, ULO(1))); // word 0 is no node
    write_function(root, "");
    return is_good_;
}

// -- The text ----------------------------------------------------------------------------------

std::string decompiler::text() const
{
    std::string text;
    text.reserve(out_.size() + 64);
    const bool with_messages = !messages_.empty() && mode_ != MINIMISED;
    if (with_messages) {
        text.append("(").append(mnemonic(ISA_PROGN)).append(" (").append(mnemonic(ISA_COMMENTS));
        text.append(" \"Decompiler messages:\"");
        for (const std::string &line : messages_)
            text.append(" \"").append(line, 0, line.size() - 1).append("\"");
        text.append(") ");
    }
    for (ULO end = out_.size(), i = pieces_.size(); i > 0; end = pieces_[--i])
        text.append(out_, pieces_[i - 1], end - pieces_[i - 1]);
    return with_messages ? text.append(")") : text;
}

std::string decompiler::messages() const
{
    std::string all;
    for (const std::string &line : messages_) all.append(line);
    return all;
}

} // namespace

bool kestrin_decompile(std::string_view code, decompile_mode mode, code_origin origin, CHR **text,
                       CHR **messages)
{
    decompiler pass(code, mode, origin);
    const bool is_good = pass.run();
    assign(text, pass.text());
    assign(messages, pass.messages());
    return is_good;
}
