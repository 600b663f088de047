#include "native/region.h"

#include <algorithm>
#include <functional>
#include <utility>
#include <vector>

#include "frontend/isa.h"
#include "frontend/words.h"
#include "vm/image.h"
#include "vm/places.h"
#include "vm/variants.h"

// The instructions that the lowering knows besides the operations on numbers.
#define KNOWN_WORK(X)                                                                              \
    X(progn, work::PROGN)                                                                          \
    X(setq, work::SETQ)                                                                            \
    X(alsetq, work::SETQ)                                                                          \
    X(arsetq, work::ARSETQ)                                                                        \
    X(index, work::INDEX)                                                                          \
    X(if, work::IF)                                                                                \
    X(while, work::WHILE)                                                                          \
    X(for, work::FOR)                                                                              \
    X(break, work::BREAK)                                                                          \
    X(defun, work::CALL)                                                                           \
    X(and, work::BOTH)                                                                             \
    X(or, work::EITHER)                                                                            \
    X(ival, work::CAST, relation(), 'I')                                                           \
    X(fval, work::CAST, relation(), 'F')                                                           \
    X(equal, work::COMPARE, relation::EQUAL)                                                       \
    X(notequal, work::COMPARE, relation::NOT_EQUAL)                                                \
    X(less, work::COMPARE, relation::LESS)                                                         \
    X(greater, work::COMPARE, relation::GREATER)                                                   \
    X(lessorequal, work::COMPARE, relation::LESS_OR_EQUAL)                                         \
    X(greaterorequal, work::COMPARE, relation::GREATER_OR_EQUAL)

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
    bool clear = true; // no other row has the handler for something else
};

// Tables by handler, sorted: they are made when the first code is, and that is to cost little.
template <class T> using table = std::vector<std::pair<fcall, T>>;

template <class T> void sort_by_handler(table<T> *rows)
{
    std::stable_sort(rows->begin(), rows->end(), [](const auto &a, const auto &b) {
        return std::less<fcall>()(a.first, b.first);
    });
}

// NULL if there is none; the first of several.
template <class T> const T *find_in(const table<T> &rows, fcall handler)
{
    const auto found =
        std::lower_bound(rows.begin(), rows.end(), handler, [](const auto &row, fcall sought) {
            return std::less<fcall>()(row.first, sought);
        });
    return found == rows.end() || found->first != handler ? nullptr : &found->second;
}

// A handler that stands in rows that differ tells nothing.
void mark_unclear(table<instruction> *rows)
{
    for (std::size_t first = 0, i = 1; i < rows->size(); i++) {
        if ((*rows)[i].first != (*rows)[first].first) {
            first = i;
            continue;
        }
        instruction &known = (*rows)[first].second;
        const instruction &other = (*rows)[i].second;
        if (known.operands != other.operands || known.groups != other.groups) known.clear = false;
    }
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
    sort_by_handler(&all);
    mark_unclear(&all);
    return all;
}

const instruction *find_instruction(fcall handler)
{
    static const table<instruction> all = read_tables();
    const instruction *found = find_in(all, handler);
    return found == nullptr || !found->clear ? nullptr : found;
}

struct known_work {
    work what = work::OTHER;
    relation comparison = {};
    CHR letter = 0;
    const numeric_row *row = nullptr;
};

table<known_work> list_known_work()
{
    table<known_work> all = {
#define ROW(name, ...) {func__##name, {__VA_ARGS__}},
        KNOWN_WORK(ROW)
#undef ROW
    };
    for (const auto &rows : {integer_operations(), float_operations()})
        for (const numeric_row &row : rows)
            all.push_back({row.handler, {work::NUMERIC, {}, 0, &row}});
    sort_by_handler(&all);
    return all;
}

known_work find_work(fcall handler)
{
    static const table<known_work> all = list_known_work();
    const known_work *found = find_in(all, handler);
    return found == nullptr ? known_work() : *found;
}

// Reads the tree.
class reader {
public:
    explicit reader(region *r) : r_(*r) {}
    bool read(const ULO *node, const ULO *word, ULO place);

private:
    bool read_leaf(fcall handler, item *it);
    bool read_instruction(fcall handler, item *it);
    bool read_operands(unsigned i, const image::node_words &words, ULO count);
    bool name_variable(ULO number, UCH *variable);
    void observe(local *v) const;
    void sum_up(unsigned i, const instruction *known);

    region &r_;
    image::node_words words_;
    const instruction *known_ = nullptr;
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

bool reader::name_variable(ULO number, UCH *variable)
{
    auto &locals = r_.locals;
    const auto is_it = [number](const local &v) { return v.number == number; };
    const auto found = std::find_if(locals.begin(), locals.end(), is_it);
    *variable = static_cast<UCH>(found - locals.begin());
    if (found != locals.end()) return true;
    if (locals.size() == MOST_VARIABLES) return false;
    local v;
    v.number = number;
    observe(&v);
    const bool is_function = r_.kind != shape::LOOP;
    if (is_function && number < image_arguments(r_.image)) {
        r_.arguments |= bit(*variable);
        if (r_.self != nullptr) v.observed = r_.self->arguments[number];
    }
    locals.push_back(v);
    return true;
}

// True for a leaf, which is then read.
bool reader::read_leaf(fcall handler, item *it)
{
    const auto is_one_of = [handler](auto... leaves) { return ((handler == leaves) || ...); };
    if (is_one_of(func__dummy_i, func__dummy_f)) {
        it->what = work::CONSTANT;
        it->letter = handler == func__dummy_i ? 'I' : 'F';
        return true;
    }
    if (is_one_of(func__dummy_s, func__dummy_z)) return true;
    if (!is_one_of(func__getval, func__getval_i, func__getval_f, func__getval_s, func__getval_z,
                   func__getval_last, func__getval_ptr))
        return false;
    it->what = work::READ;
    return true;
}

bool reader::read_instruction(fcall handler, item *it)
{
    known_ = find_instruction(handler);
    if (known_ == nullptr) return false;
    const known_work found = find_work(known_->generic);
    it->what = found.what;
    it->comparison = found.comparison;
    it->row = found.row;
    it->letter = found.what == work::OTHER ? known_->result : found.letter;
    if (found.what == work::COMPARE) it->letter = known_->slot;
    words_ = found.what == work::CALL
                 ? image::words_of_call()
                 : image::words_of_instruction(known_->operands, known_->groups & VARIABLE_FIRST);
    return true;
}

bool reader::read_operands(unsigned i, const image::node_words &words, ULO count)
{
    const unsigned parent = std::exchange(parent_, i);
    const ULO *node = r_[i].node;
    const bool is_for = r_[i].what == work::FOR;
    const unsigned loops = loops_;
    for (ULO k = is_for ? 1 : 0; k < count; k++) {
        // What is evaluated in each round.
        if (r_[i].what == work::WHILE || (is_for && k > 1)) loops_ = loops + 1;
        const ULO *word = node + words.operands + k;
        if (!read(node_at(word), word, k)) return false;
    }
    loops_ = loops;
    parent_ = parent;
    return true;
}

// What follows from the operands.
void reader::sum_up(unsigned i, const instruction *known)
{
    item &it = r_[i];
    it.end = static_cast<unsigned>(r_.items.size());
    const bool is_loop = it.what == work::WHILE || it.what == work::FOR;
    it.pure = it.what != work::SETQ && it.what != work::ARSETQ && it.what != work::CALL &&
              it.what != work::OTHER && it.what != work::BREAK && !is_loop;
    if (it.row != nullptr && (it.row->handler == func__irnd || it.row->handler == func__frnd))
        it.pure = false;
    for (unsigned k = i + 1; k < it.end; k = r_[k].end) {
        const item &operand = r_[k];
        it.reads |= operand.reads;
        it.assigns |= operand.assigns;
        it.pure = it.pure && operand.pure;
    }
    if (known == nullptr) return;
    if (known->groups & SETS_VARIABLE) it.assigns |= bit(it.variable);
    if (known->groups & (READS_ARRAY | in(GROUP_ARSETQ))) it.reads |= bit(it.variable);
}

bool reader::read(const ULO *node, const ULO *word, ULO place)
{
    if (r_.items.size() == MOST_ITEMS || depth_ == DEEPEST) return false;
    const unsigned i = static_cast<unsigned>(r_.items.size());
    r_.items.emplace_back();
    item it;
    it.node = node;
    it.word = word;
    it.place = place;
    it.parent = parent_;
    it.loops = loops_;
    const fcall handler = generic_handler(linked_handler(node));
    if (read_leaf(handler, &it)) {
        if (it.what == work::READ) {
            if (!name_variable(node[1], &it.variable)) return false;
            it.reads = bit(it.variable);
        }
        it.pure = it.what != work::OTHER;
        it.end = i + 1;
        r_[i] = it;
        return true;
    }
    if (!read_instruction(handler, &it)) return false;
    const instruction *const known = known_;
    const image::node_words words = words_;
    if (known->groups & SETS_VARIABLE || known->groups & VARIABLE_FIRST) {
        const ULO number =
            words.variable != 0 ? node[words.variable] : node_at(node + words.operands)[1];
        if (!name_variable(number, &it.variable)) return false;
    }
    if (it.what == work::INDEX || it.what == work::ARSETQ) {
        it.letter = known->slot; // of a typed handler
        it.mixed = known->slot == 0;
    }
    r_[i] = it;
    depth_++;
    const ULO count = words.count != 0 ? node[words.count] : words.declared;
    const bool read_all = read_operands(i, words, count);
    depth_--;
    if (read_all) sum_up(i, known);
    return read_all;
}

} // namespace

bool read_region(region *r, const ULO *root) { return reader(r).read(root, nullptr, 0); }

} // namespace native
