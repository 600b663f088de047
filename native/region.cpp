#include "native/region.h"

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <span>
#include <utility>
#include <vector>

#include "frontend/isa.h"
#include "frontend/words.h"
#include "vm/image.h"
#include "vm/places.h"
#include "vm/variants.h"

// The instructions that the lowering knows; an operation on numbers that is not here is a call.
#define NUMBERS(way_of_it) .what = work::NUMERIC, .how = way::way_of_it
#define KNOWN_WORK(X)                                                                              \
    X(progn, .what = work::PROGN)                                                                  \
    X(setq, .what = work::SETQ)                                                                    \
    X(alsetq, .what = work::SETQ)                                                                  \
    X(arsetq, .what = work::ARSETQ)                                                                \
    X(index, .what = work::INDEX)                                                                  \
    X(if, .what = work::IF)                                                                        \
    X(while, .what = work::WHILE)                                                                  \
    X(for, .what = work::FOR)                                                                      \
    X(break, .what = work::BREAK)                                                                  \
    X(defun, .what = work::CALL)                                                                   \
    X(and, .what = work::BOTH)                                                                     \
    X(or, .what = work::EITHER)                                                                    \
    X(ival, .what = work::CAST, .letter = 'I')                                                     \
    X(fval, .what = work::CAST, .letter = 'F')                                                     \
    X(equal, .what = work::COMPARE, .comparison = relation::EQUAL)                                 \
    X(notequal, .what = work::COMPARE, .comparison = relation::NOT_EQUAL)                          \
    X(less, .what = work::COMPARE, .comparison = relation::LESS)                                   \
    X(greater, .what = work::COMPARE, .comparison = relation::GREATER)                             \
    X(lessorequal, .what = work::COMPARE, .comparison = relation::LESS_OR_EQUAL)                   \
    X(greaterorequal, .what = work::COMPARE, .comparison = relation::GREATER_OR_EQUAL)             \
    X(iadd, NUMBERS(COMPUTE), .what_to_compute = operation::ADD)                                   \
    X(isub, NUMBERS(COMPUTE), .what_to_compute = operation::SUB)                                   \
    X(imul, NUMBERS(COMPUTE), .what_to_compute = operation::MUL)                                   \
    X(iand, NUMBERS(COMPUTE), .what_to_compute = operation::AND)                                   \
    X(ior, NUMBERS(COMPUTE), .what_to_compute = operation::OR)                                     \
    X(ixor, NUMBERS(COMPUTE), .what_to_compute = operation::XOR)                                   \
    X(fadd, NUMBERS(COMPUTE), .what_to_compute = operation::ADD)                                   \
    X(fsub, NUMBERS(COMPUTE), .what_to_compute = operation::SUB)                                   \
    X(fmul, NUMBERS(COMPUTE), .what_to_compute = operation::MUL)                                   \
    X(iincr, NUMBERS(WITH_NUMBER), .what_to_compute = operation::ADD, .number = 1)                 \
    X(idecr, NUMBERS(WITH_NUMBER), .what_to_compute = operation::SUB, .number = 1)                 \
    X(inot, NUMBERS(WITH_NUMBER), .what_to_compute = operation::XOR, .number = -1)                 \
    X(fabs, NUMBERS(WITH_NUMBER), .what_to_compute = operation::AND, .number = INT64_MAX)          \
    X(ishl, NUMBERS(SHIFT_LEFT))                                                                   \
    X(ishr, NUMBERS(SHIFT_RIGHT))                                                                  \
    X(ineg, NUMBERS(NEGATE))                                                                       \
    X(iabs, NUMBERS(ABSOLUTE))                                                                     \
    X(not, NUMBERS(NOT))                                                                           \
    X(idiv, NUMBERS(QUOTIENT))                                                                     \
    X(imod, NUMBERS(REMAINDER))                                                                    \
    X(fdiv, NUMBERS(DIVIDE_REAL))                                                                  \
    X(fsqrt, NUMBERS(SQUARE_ROOT))

#define DECLARE(name, ...) HANDLER(name);
KNOWN_WORK(DECLARE)
#undef DECLARE
HANDLER(irnd);
HANDLER(frnd);

namespace native {

namespace {

constexpr unsigned MOST_ITEMS = 30000, DEEPEST = 200;

// What is known of an instruction by its handler.
struct instruction {
    SLO operands = 0; // as in the table
    group_set groups = 0;
    fcall generic = nullptr;
    CHR slot = 0; // 'I', 'F' or 'S' for a handler of such values
    CHR result = 0;
};

// Tables by handler, sorted: they are made when the first code is, and that is to cost little.
template <class T> using table = std::vector<std::pair<fcall, T>>;

template <class T> table<T> sorted(table<T> rows)
{
    std::ranges::stable_sort(rows, std::less<fcall>(), &std::pair<fcall, T>::first);
    return rows;
}

// The rows with a handler.
template <class T> std::span<const std::pair<fcall, T>> find_in(const table<T> &rows, fcall handler)
{
    constexpr auto key = &std::pair<fcall, T>::first;
    return {std::ranges::lower_bound(rows, handler, std::less<fcall>(), key),
            std::ranges::upper_bound(rows, handler, std::less<fcall>(), key)};
}

table<instruction> read_tables()
{
    table<instruction> all;
    all.reserve(3 * (isa_count + isaext_count));
    constexpr CHR slots[] = {0, 'I', 'F', 'S', 0};
    for (ULO i = 0; i < isa_count; i++) {
        const isa_row &row = isa_table[i];
        const group_set groups = groups_of(row);
        for (ULO slot = 0; slot < std::size(slots); slot++)
            if (row.slots[slot] != nullptr)
                all.push_back(
                    {row.slots[slot],
                     {row.operands, groups, row.slots[0], slots[slot], CHR(row.ret_type)}});
    }
    for (ULO i = 0; i < isaext_count; i++) {
        const INSTRUCTION_STRU &row = isaext_table[i];
        all.push_back({row.func_ptr, {row.operands, 0, row.func_ptr, 0, 0}});
    }
    return sorted(std::move(all));
}

// NULL for a handler that no row has, or that stands in rows that differ.
const instruction *find_instruction(fcall handler)
{
    static const table<instruction> all = read_tables();
    const auto rows = find_in(all, handler);
    for (const auto &[_, row] : rows) {
        const instruction &first = rows.front().second;
        if (row.operands != first.operands || row.groups != first.groups) return nullptr;
    }
    return rows.empty() ? nullptr : &rows.front().second;
}

table<item> list_known_work()
{
    table<item> all = {
#define ROW(name, ...) {func__##name, {__VA_ARGS__}},
        KNOWN_WORK(ROW)
#undef ROW
    };
    for (const auto &rows : {integer_operations(), float_operations()})
        for (const numeric_row &row : rows)
            all.push_back({row.handler, {.what = work::NUMERIC, .row = &row}});
    return sorted(std::move(all));
}

// An item as it begins.
item begin_item(const instruction &known)
{
    static const table<item> all = list_known_work();
    const auto found = find_in(all, known.generic);
    item it = found.empty() ? item() : found.front().second;
    if (!found.empty()) it.row = found.back().second.row; // of an operation, behind what is known
    if (it.what == work::OTHER || it.what == work::NUMERIC) it.letter = known.result;
    if (it.what == work::COMPARE || it.what == work::INDEX || it.what == work::ARSETQ)
        it.letter = known.slot;
    it.mixed = known.slot == 0 && (it.what == work::INDEX || it.what == work::ARSETQ);
    return it;
}

// Reads the tree.
class reader {
public:
    explicit reader(region *r) : r_(*r) {}
    bool read(const ULO *node, const ULO *word, ULO place);

private:
    bool read_leaf(unsigned i, fcall handler);
    bool read_instruction(unsigned i, const instruction &known);
    bool read_operands(unsigned i, const image::node_words &words);
    bool name_variable(unsigned i, ULO number);
    void observe(local *v) const;
    void sum_up(unsigned i, const instruction &known);

    region &r_;
    unsigned parent_ = 0, depth_ = 0, loops_ = 0;
};

void reader::observe(local *v) const
{
    if (r_.frame == nullptr) return;
    const kestrin_data &record = r_.frame[v->number];
    v->observed = record.single ? CHR(record.type) : 'A';
    v->first = CHR(record.type);
    v->array = CHR(record.arraytype);
    v->member = v->array;
    if (!record.single && v->array == 0 && record.array.mix != nullptr && owned_places(&record) > 1)
        v->member = CHR(record.array.mix[1].type);
}

bool reader::name_variable(unsigned i, ULO number)
{
    auto &locals = r_.locals;
    const auto found = std::ranges::find(locals, number, &local::number);
    const auto variable = static_cast<UCH>(found - locals.begin());
    r_[i].variable = variable;
    if (found != locals.end()) return true;
    if (locals.size() == MOST_VARIABLES) return false;
    local v;
    v.number = number;
    observe(&v);
    if (r_.kind != shape::LOOP && number < image_arguments(r_.image)) {
        r_.arguments |= bit(variable);
        if (r_.self != nullptr) v.observed = r_.self->arguments[number];
    }
    locals.push_back(v);
    return true;
}

bool is_one_of(fcall handler, std::initializer_list<fcall> leaves)
{
    return std::ranges::find(leaves, handler) != leaves.end();
}

bool is_variable(fcall handler)
{
    return is_one_of(handler, {func__getval, func__getval_i, func__getval_f, func__getval_s,
                               func__getval_z, func__getval_last, func__getval_ptr});
}

bool is_constant(fcall handler)
{
    return is_one_of(handler, {func__dummy_i, func__dummy_f, func__dummy_s, func__dummy_z});
}

// A constant of another type is OTHER.
bool reader::read_leaf(unsigned i, fcall handler)
{
    item &it = r_[i];
    it.end = i + 1;
    if (is_variable(handler)) {
        it.what = work::READ;
        if (!name_variable(i, it.node[1])) return false;
        it.reads = bit(it.variable);
    } else if (is_one_of(handler, {func__dummy_i, func__dummy_f})) {
        it.what = work::CONSTANT;
        it.letter = handler == func__dummy_i ? 'I' : 'F';
    }
    it.pure = it.what != work::OTHER;
    return true;
}

bool reader::read_operands(unsigned i, const image::node_words &words)
{
    const ULO *node = r_[i].node;
    const work what = r_[i].what;
    const ULO count = words.count != 0 ? node[words.count] : words.declared;
    const unsigned parent = std::exchange(parent_, i), loops = loops_;
    const ULO first = what == work::FOR ? 1 : 0; // its variable is no operand
    depth_++;
    for (ULO k = first; k < count; k++) {
        // What is evaluated in each round.
        if (what == work::WHILE || (what == work::FOR && k > 1)) loops_ = loops + 1;
        const ULO *word = node + words.operands + k;
        if (!read(node_at(word), word, k)) return false;
    }
    depth_--;
    loops_ = loops;
    parent_ = parent;
    return true;
}

// What follows from the operands.
void reader::sum_up(unsigned i, const instruction &known)
{
    item &it = r_[i];
    it.end = static_cast<unsigned>(r_.items.size());
    it.pure = it.what != work::SETQ && it.what != work::ARSETQ && it.what != work::CALL &&
              it.what != work::OTHER && it.what != work::BREAK && !is_loop(it.what);
    if (it.row != nullptr && is_one_of(it.row->handler, {func__irnd, func__frnd})) it.pure = false;
    for (unsigned k = i + 1; k < it.end; k = r_[k].end) {
        const item &operand = r_[k];
        it.reads |= operand.reads;
        it.assigns |= operand.assigns;
        it.pure = it.pure && operand.pure;
    }
    if (known.groups & SETS_VARIABLE) it.assigns |= bit(it.variable);
    if (known.groups & (READS_ARRAY | in(GROUP_ARSETQ))) it.reads |= bit(it.variable);
}

bool reader::read_instruction(unsigned i, const instruction &known)
{
    const ULO *node = r_[i].node;
    const image::node_words words =
        r_[i].what == work::CALL
            ? image::words_of_call()
            : image::words_of_instruction(known.operands, known.groups & VARIABLE_FIRST);
    if (known.groups & (SETS_VARIABLE | VARIABLE_FIRST)) {
        const ULO number =
            words.variable != 0 ? node[words.variable] : node_at(node + words.operands)[1];
        if (!name_variable(i, number)) return false;
    }
    if (!read_operands(i, words)) return false;
    sum_up(i, known);
    return true;
}

bool reader::read(const ULO *node, const ULO *word, ULO place)
{
    if (r_.items.size() == MOST_ITEMS || depth_ == DEEPEST) return false;
    const unsigned i = static_cast<unsigned>(r_.items.size());
    const fcall handler = generic_handler(linked_handler(node));
    const bool is_leaf = is_variable(handler) || is_constant(handler);
    const instruction *known = is_leaf ? nullptr : find_instruction(handler);
    if (!is_leaf && known == nullptr) return false;
    item it = is_leaf ? item() : begin_item(*known);
    it.node = node;
    it.word = word;
    it.place = place;
    it.parent = parent_;
    it.loops = loops_;
    r_.items.push_back(it);
    return is_leaf ? read_leaf(i, handler) : read_instruction(i, *known);
}

} // namespace

bool read_region(region *r, const ULO *root) { return reader(r).read(root, nullptr, 0); }

} // namespace native
