// Compiled images made from scratch: trees of nodes that are nearly right, so that they say what no
// compiler says and no changed byte of a good program comes to. The bytes of the input choose the
// tree, zeros behind its end the shortest one.
//
// Always wrong are the things that nothing in an image can prove: slots that promise other types
// than the operands have, typed reads, fused patterns over whatever there is, frames of any width,
// functions with fewer slots than arguments. An image that lies as well bends words of the format:
// references backward, shared or into other functions, numbers, counts, letters, lengths.
//
// Runs end: in each loop and in each function that calls another stands a step, row 0 of the
// extension, which ends the run when there were too many. Stores that may nest arrays go through
// row 1, which is a step as well and gives its operand. Texts are cut, sizes are small, and no
// divisor is -1: what else is out of bounds is the machine's to find.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "frontend/isa.h"
#include "vm/image.h"

namespace kit {

constexpr int body_depth = 5;
enum : ULO { STEP_ROW, GATE_ROW, MIX_ROW }; // of the extension: () I, (I) I, (I F S) S

class random_image {
public:
    // `globals`: how many functions there are to call beyond the image.
    random_image(std::string_view choices, ULO globals) : rest_(choices), globals_(globals) {}

    std::vector<ULO> words() // once
    {
        lies_ = below(3) > 0;
        image(2, true);
        for (int i = below(3); i > 0; i--) put(below(200)); // nobody's words
        return words_;
    }

private:
    struct udf {
        ULO slots, arguments;
    };
    struct function : udf {
        bool is_root, may_call;
    };

    // -- Choices -----------------------------------------------------------------------------

    int below(int n)
    {
        if (rest_.empty()) return 0;
        const int chosen = static_cast<UCH>(rest_[0]) % n;
        rest_.remove_prefix(1);
        return chosen;
    }
    ULO up_to(ULO n) { return ULO(below(int(n + 1))); }
    bool one_in(int n) { return below(n) == n - 1; }
    template <class T, class... More> T pick(T first, More... more)
    {
        const T all[] = {first, T(more)...};
        return all[below(1 + int(sizeof...(More)))];
    }

    // -- Words -------------------------------------------------------------------------------

    ULO here() const { return words_.size(); }
    void put(ULO word) { words_.push_back(word); }

    // A word of the format, which may be bent.
    ULO bent(ULO word)
    {
        if (!lies_ || !one_in(100)) return word;
        switch (below(7)) {
        case 0: return word + 1;
        case 1: return word - 1;
        case 2: return 0;
        case 3: return ~ULO(0) >> below(64);
        case 4: return word ^ ULO(1) << below(64);
        case 5: return word + (ULO(1) << (7 + below(6))); // another slot or row
        default: return up_to(12);
        }
    }
    void put_bent(ULO word) { put(bent(word)); }
    // A bent code word is never a loop, whose body would have no step.
    void put_code(CHR letter, ULO payload = 0)
    {
        const ULO sound = image::code(letter, payload), word = bent(sound);
        const ULO row = image::row_of(image::payload_of(word));
        put(row == ISA_WHILE || row == ISA_FOR ? sound : word);
    }

    void refer_straight(ULO place) { words_[place] = here() - place; }

    // Lets the word at `place` refer to what comes next, or to some node or image written before.
    void refer(ULO place)
    {
        const bool wrong = lies_ && one_in(100);
        const ULO target = wrong && !starts_.empty() ? starts_[up_to(starts_.size() - 1)] : here();
        words_[place] = bent(target - place);
    }

    // -- Images ------------------------------------------------------------------------------

    ULO frame(bool is_root)
    {
        if (one_in(6)) return ULO(1018 + below(8)); // where a chunk of frames ends
        return is_root ? ULO(3 + below(4)) : up_to(5);
    }

    void debug_text()
    {
        if (!one_in(4)) return;
        std::string text = "()(\377IF\3767\3763\377)()Main A B:C";
        if (lies_ && one_in(8)) text += "########";
        put_text(text.substr(0, text.size() - up_to(8)));
    }

    void image(int nesting, bool is_root)
    {
        const ULO start = here(), udfs = nesting > 0 ? up_to(3) : 0, known = scope_.size();
        function f = {{frame(is_root), is_root && one_in(4) ? 0 : up_to(4)}, is_root, !one_in(3)};
        if (f.slots < f.arguments && !one_in(3)) f.slots += 4;
        starts_.push_back(start);
        if (!is_root) scope_.push_back(f);
        for (ULO i = 0; i < image::UDF_TABLE + udfs; i++) put(0);
        debug_text();
        const ULO own = scope_.size();
        for (ULO i = 0; i < udfs; i++) {
            refer(start + image::UDF_TABLE + i);
            image(nesting - 1, false);
            scope_.resize(own + i + 1);
        }
        words_[start] = image::code('U', here() - start - (lies_ && one_in(100)));
        words_[start + image::SLOTS] = f.slots;
        words_[start + image::ARGUMENTS] = bent(f.arguments);
        words_[start + image::UDFS] = bent(udfs);
        const function outer = function_;
        function_ = f;
        budget_ = 12;
        if (f.may_call || is_root)
            body();
        else
            node(pick('V', 'I', 'F', 'S'), body_depth);
        function_ = outer;
        if (is_root) scope_.resize(known);
    }

    // -- Leaves ------------------------------------------------------------------------------

    void put_text(std::string_view text)
    {
        const ULO at = here();
        words_.resize(at + image::words_of_text(text.size()));
        memcpy(&words_[at], text.data(), text.size());
    }

    void text_node(std::string_view text)
    {
        put_code('S');
        put_bent(text.size());
        put_text(text);
        if (lies_ && one_in(60)) words_.back() = ~ULO(0) << (8 * below(8));
    }

    void constant(CHR want)
    {
        using namespace std::string_view_literals;
        if (want == 'V' || one_in(6)) want = pick('I', 'F', 'S', 'Z');
        switch (want) {
        case 'F':
            put_code('F');
            return put(pick(ULO(0), 0x3FF8000000000000, 0xC05A400000000000, 0x7FF8000000000000));
        case 'S':
            return text_node(pick("a"sv, ""sv, "12"sv, "2.5 x"sv, "seven..", "eight..."sv,
                                  "fifteen bytes.."sv, "sixteen bytes..."sv, "\xC3\xA4\xE2\x82"sv,
                                  "a\0b"sv, "(+ 1 (* 2 3))"sv, "\\x41\\n"sv));
        case 'Z': return put_code('Z');
        default:
            put_code('I');
            return put(pick(ULO(1), 0, 2, 3, 127, 128, 200, ~ULO(0), 1 << 14, ULO(1) << 62));
        }
    }

    // Any letter over any variable: what it holds is another matter.
    void variable(CHR want, bool lent = false)
    {
        if (function_.slots == 0) return constant(want);
        const CHR typed = want == 'V' ? pick('V', 'i', 'f', 's', 'z') : CHR(want + 32);
        const CHR letter = one_in(8) ? pick('V', 'i', 'f', 's', 'z') : pick('V', typed);
        put_code(lent ? 'P' : letter);
        put_bent(slot());
    }

    // The number of a variable; few of them, so that they meet, and the last of the frame.
    ULO slot()
    {
        const ULO slots = function_.slots, last = slots - 1;
        return one_in(6) ? last : up_to(slots < 4 ? last : 3);
    }
    ULO writable()
    {
        const ULO first = function_.is_root ? 0 : function_.arguments;
        return first < function_.slots && !(lies_ && one_in(30))
                   ? first + slot() % (function_.slots - first)
                   : slot();
    }
    bool may_assign() const
    {
        return function_.slots > (function_.is_root ? 0 : function_.arguments);
    }

    // -- Instructions ------------------------------------------------------------------------

    ULO any_slot(const isa_row &row)
    {
        ULO slot = up_to(4);
        while (row.slots[slot] == nullptr && !(lies_ && one_in(60)))
            slot = slot == 0 ? 4 : slot - 1;
        return slot;
    }

    // The code word and what follows it up to the operands' words, of which it makes `count`.
    ULO begin(CHR letter, ULO payload, std::initializer_list<ULO> more, ULO count)
    {
        starts_.push_back(here());
        put_code(letter, payload);
        for (const ULO word : more) put_bent(word);
        words_.resize(here() + count);
        return here() - count;
    }
    ULO begin(ULO row, std::initializer_list<ULO> more, ULO count)
    {
        return begin('T', image::instruction(row, any_slot(isa_table[row])), more, count);
    }

    // Operands wanted as these, from this word of a table on; returns the word behind.
    ULO operands(ULO place, std::initializer_list<CHR> wants, int depth)
    {
        for (const CHR want : wants) refer(place++), node(want, depth - 1);
        return place;
    }

    void step() { begin('t', image::instruction(STEP_ROW, 0), {}, 0); }

    // A step and statements: what a loop does in a round, and a function that may go on for long.
    // The way to the step is straight.
    void sequence(int depth, ULO count)
    {
        const bool lies = std::exchange(lies_, false);
        const ULO table = begin(ISA_PROGN, {count + 1}, count + 1);
        refer(table), step();
        lies_ = lies;
        for (ULO i = 1; i <= count; i++) {
            refer(table + i);
            if (depth == body_depth) budget_ = 12;
            node('V', depth - 1);
        }
    }

    // The body of a function: first values for some variables, without which runs end soon.
    void body()
    {
        const bool sets = may_assign() && !one_in(8);
        const ULO count = sets ? 1 + up_to(8) : 0;
        const bool lies = std::exchange(lies_, false);
        const ULO table = begin(ISA_PROGN, {count + 1}, count + 1);
        lies_ = lies;
        for (ULO i = 0; i < count; i++) refer(table + i), first_value();
        refer_straight(table + count), sequence(body_depth, 2 + up_to(6));
    }
    void first_value()
    {
        const bool member = one_in(2);
        const ULO table =
            member ? begin(ISA_ARSETQ, {writable()}, 2) : begin(ISA_SETQ, {writable()}, 1);
        refer(table);
        if (member) put_code('I'), put(up_to(3)), refer(table + 1);
        constant('V');
    }

    void small(int depth, ULO most = 15)
    {
        if (!one_in(3)) return put_code('I'), put(up_to(most));
        refer(operands(begin(ISA_IAND, {}, 2), {'I'}, depth));
        put_code('I'), put(most);
    }

    void control(CHR want, int depth)
    {
        const int which = below(may_assign() ? 7 : 3);
        const ULO row = pick(ISA_SETQ, ISA_SETQ, ISA_ALSETQ);
        switch (which) {
        case 0: operands(begin(ISA_IF, {}, 3), {'I', want, want}, depth); return;
        case 1: return rounds(operands(begin(ISA_WHILE, {}, 2), {'I'}, depth), depth);
        case 2: return sequence(depth - 1, 1 + up_to(3));
        case 3: return count_up(depth);
        case 4: return store(depth);
        default: operands(begin(row, {writable()}, 1), {want}, depth);
        }
    }

    void rounds(ULO body, int depth)
    {
        refer_straight(body);
        sequence(depth - 1, 1 + up_to(3));
    }

    void count_up(int depth)
    {
        const ULO table = begin(ISA_FOR, {}, 5);
        refer(table);
        put_code(pick('V', 'i', 'f', 's', 'z')), put_bent(writable());
        rounds(operands(table + 1, {'I', 'I', 'I'}, 2), depth);
    }

    // A value that may be an array makes the index a step.
    void store(int depth)
    {
        const bool single = one_in(2);
        const ULO table = begin(ISA_ARSETQ, {writable()}, 2);
        refer(table);
        if (!single) refer(begin('t', image::instruction(GATE_ROW, 0), {}, 1));
        index(depth);
        refer(table + 1);
        if (!single) return node('V', depth - 1);
        if (one_in(2)) return constant(pick('V', 'I', 'F', 'S'));
        operation(pick('I', 'F'), depth - 1);
    }

    void member(int depth)
    {
        if (function_.slots == 0) return constant('V');
        const ULO table = begin(pick(ISA_INDEX, ISA_INDEX, ISA_ALINDEX), {slot()}, 1);
        refer(table), index(depth);
    }

    // Mostly one that there may be.
    void index(int depth)
    {
        if (one_in(3)) return node('I', depth - 1);
        if (one_in(2)) return small(depth, 3);
        put_code('I'), put(up_to(3));
    }

    // -- Calls -------------------------------------------------------------------------------

    void call(int depth)
    {
        const bool global = globals_ > 0 && (scope_.empty() || one_in(5));
        if (!global && scope_.empty()) return extension(depth);
        const ULO number = up_to((global ? globals_ : scope_.size()) - 1);
        const udf called = global ? udf{4, 2} : scope_[number];
        const ULO passed = up_to(called.arguments);
        const ULO table =
            begin(global ? 'G' : 'L', image::instruction(ISA_DEFUN, 0), {number, passed}, passed);
        for (ULO i = 0; i < passed; i++) {
            refer(table + i);
            if (function_.slots > 0 && one_in(2))
                variable('V', true);
            else
                node('V', depth - 1);
        }
    }

    void extension(int depth)
    {
        if (one_in(3)) return step();
        operands(begin('t', image::instruction(MIX_ROW, 0), {}, 3), {'I', 'F', 'S'}, depth);
    }

    // -- Rows of operations ------------------------------------------------------------------

    // Waits for a person, or changes what outlives the run.
    static bool is_left_out(ULO row)
    {
        return (row >= ISA_DEFUN && row <= ISA_REM && row != ISA_BREAK && row != ISA_EXIT) ||
               (row < ISA_DEFUN) || row == ISA_ACCEPT || row == ISA_SCAN_CONSOLE ||
               (row >= ISA_FILE_CREATE && row <= ISA_FILE_REMOVE) || row == ISA_REINIT_TERMINAL;
    }
    static bool is_size(ULO row, ULO operand)
    {
        static constexpr ULO first[] = {ISA_SPACE, ISA_ASYNCHEAP_CREATE};
        static constexpr ULO second[] = {ISA_REPLICATE, ISA_PADL,   ISA_PADR,
                                         ISA_PADC,      ISA_IDIV,   ISA_IDIV_2,
                                         ISA_IMOD,      ISA_IMOD_2, ISA_ASYNCHEAP_REALLOCATE};
        return operand == 0 ? std::ranges::count(first, row) > 0
                            : operand == 1 && std::ranges::count(second, row) > 0;
    }
    static bool may_grow(ULO row)
    {
        const isa_row &r = isa_table[row];
        return r.ret_type == 'S' && r.operands > 0 && row != ISA_LEFT;
    }

    static const std::vector<ULO> &rows_giving(CHR letter)
    {
        static std::vector<ULO> made[128];
        std::vector<ULO> &rows = made[UCH(letter)];
        if (!rows.empty()) return rows;
        for (ULO row = 0; row < isa_count; row++)
            if (!is_left_out(row) && isa_table[row].ret_type == UCH(letter)) rows.push_back(row);
        return rows;
    }

    void operation(CHR want, int depth)
    {
        if (want == 'V' || one_in(8)) want = pick('I', 'F', 'S', 'U');
        const std::vector<ULO> &rows = rows_giving(want == 'Z' ? 'U' : want);
        const ULO row = rows[up_to(rows.size() - 1)];
        if (!may_grow(row)) return instruction(row, depth);
        const ULO cut = begin(ISA_LEFT, {}, 2);
        refer(cut), instruction(row, depth);
        refer(cut + 1), put_code('I'), put(40);
    }

    void instruction(ULO row, int depth)
    {
        const isa_row &r = isa_table[row];
        const ULO count = ULO(r.operands), table = begin(row, {}, count);
        const CHR pair = pick('I', 'F', 'S', 'V');
        for (ULO i = 0; i < count; i++) {
            refer(table + i);
            const CHR letter = r.op_type[i];
            if (is_size(row, i))
                small(depth);
            else if ((row == ISA_STR_FMT || row == ISA_OUTF) && i == 0)
                text_node(pick(std::string_view("%s"), "%5ld|", "%.2f", "%", "%x%d", "%Lg", "%c"));
            else if (row == ISA_MAPCAR && one_in(2))
                bytecode();
            else
                node(letter == 'E' ? pair : strchr("IFS", letter) ? letter : 'V', depth - 1);
        }
    }

    // Another image as a text.
    void bytecode()
    {
        if (inside_) return constant('S');
        random_image inner(rest_.substr(0, rest_.size() / 3), globals_);
        rest_.remove_prefix(rest_.size() / 3);
        inner.inside_ = true;
        const std::vector<ULO> words = inner.words();
        text_node(
            {reinterpret_cast<const CHR *>(words.data()), words.size() * sizeof(ULO) - up_to(8)});
    }

    // -- Nodes -------------------------------------------------------------------------------

    // `want`: what the parent reads it as; 'V' anything.
    void node(CHR want, int depth)
    {
        if (depth <= 0 || --budget_ < 0) return one_in(2) ? constant(want) : variable(want);
        const int which = below(12);
        if (which < 1) return constant(want);
        if (which < 3) return variable(want);
        if (which < 7) return operation(want, depth);
        if (which < 9) return member(depth);
        if (which < 11) return control(want, depth);
        function_.may_call ? call(depth) : extension(depth);
    }

    std::string_view rest_;
    ULO globals_;
    bool lies_ = false, inside_ = false;
    int budget_ = 0;
    std::vector<ULO> words_, starts_; // starts: of all nodes and images
    std::vector<udf> scope_;          // UDFs by number
    function function_ = {};
};

} // namespace kit
