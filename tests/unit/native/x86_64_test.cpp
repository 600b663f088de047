// The encoder: what a disassembler reads in its bytes, for all registers and shapes of memory, and
// what the processor makes of them beside C++.

#if defined(__x86_64__)

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "native/x86_64.h"

namespace {

using namespace native;

// -- As a disassembler reads it

const char *const names[] = {"rax", "rcx", "rdx", "rbx", "rsp", "rbp", "rsi", "rdi",
                             "r8",  "r9",  "r10", "r11", "r12", "r13", "r14", "r15"};
std::string name_of(reg r)
{
    return is_real(r) ? "xmm" + std::to_string(int(r) - int(reg::X0)) : names[int(r)];
}
std::string low_half(reg r) { return r < reg::R8 ? "e" + name_of(r).substr(1) : name_of(r) + "d"; }

std::string hexadecimal(SLO value)
{
    char text[32];
    snprintf(text, sizeof text, "%c0x%llx", value < 0 ? '-' : '+', std::llabs(value));
    return text;
}

// As written in brackets; an offset of 0 shows where the machine has no form without one.
std::string name_of(const memory &m)
{
    std::string text = "[" + name_of(m.base);
    if (m.index != reg::NONE) text += "+" + name_of(m.index) + "*" + std::to_string(m.scale);
    const bool bare = m.offset == 0 && m.base != reg::BP && m.base != reg::R13;
    return text + (bare ? "" : hexadecimal(m.offset)) + "]";
}

// The instructions by their offsets, in one form of blanks and without comments.
std::map<ULO, std::string> disassembled(std::span<const UCH> code)
{
    char path[] = "/tmp/kestrin_code_XXXXXX";
    const int file = mkstemp(path);
    EXPECT_EQ(ssize_t(code.size()), write(file, code.data(), code.size()));
    close(file);
    const std::string command =
        "objdump -D -w -b binary -m i386:x86-64 -M intel --no-show-raw-insn " + std::string(path);
    FILE *lines = popen(command.c_str(), "r");
    std::map<ULO, std::string> found;
    char line[256], first[32], second[128];
    unsigned long long offset = 0;
    while (fgets(line, sizeof line, lines) != nullptr) {
        const int parts = sscanf(line, " %llx: %31s %127[^#\n]", &offset, first, second);
        if (parts < 2) continue;
        std::string text = parts == 3 ? std::string(first) + " " + second : first;
        text.erase(text.find_last_not_of(' ') + 1);
        found[offset] = text;
    }
    EXPECT_EQ(0, pclose(lines)) << command;
    unlink(path);
    return found;
}

// Code in the making, with the end and the text of each part: instructions between semicolons.
struct listing {
    assembler code;
    std::vector<std::pair<ULO, std::string>> parts;

    void expect(const std::string &text) { parts.emplace_back(code.size(), text); }
    void check()
    {
        const auto found = disassembled(code.finish());
        auto line = found.begin();
        for (const auto &[end, text] : parts) {
            std::string read;
            for (; line != found.end() && line->first < end; ++line) read += "; " + line->second;
            ASSERT_EQ("; " + text, read);
        }
        EXPECT_TRUE(line == found.end() && !parts.empty());
    }
};

struct operands {
    reg a, b, x, y;
    memory m;
};

// $A and $B are registers, $a the lower half of $A, $X and $Y floats, $M memory.
std::string with_operands(std::string text, const operands &o)
{
    const std::pair<const char *, std::string> places[] = {
        {"$A", name_of(o.a)}, {"$a", low_half(o.a)}, {"$B", name_of(o.b)},
        {"$X", name_of(o.x)}, {"$Y", name_of(o.y)},  {"$M", name_of(o.m)},
    };
    for (const auto &[place, name] : places) {
        for (size_t at = 0; (at = text.find(place)) != text.npos;) text.replace(at, 2, name);
    }
    return text;
}

const void *function_at(ULO address) { return reinterpret_cast<const void *>(address); }

// clang-format off
#define FORM(text, call) {text, [](assembler &s, [[maybe_unused]] const operands &o) { s.call; }}
const struct {
    const char *text;
    void (*emit)(assembler &, const operands &);
} forms[] = {
    FORM("mov $A,$B", move(o.a, o.b)),
    FORM("mov $A,QWORD PTR $M", move(o.a, o.m)),
    FORM("mov QWORD PTR $M,$A", store(o.m, o.a)),
    FORM("lea $A,$M", address(o.a, o.m)),
    FORM("mov BYTE PTR $M,0xfe", store_byte(o.m, 0xFE)),
    FORM("mov WORD PTR $M,0xfedc", store_pair(o.m, 0xFEDC)),
    FORM("mov QWORD PTR $M,0xffffffff80000000", store(o.m, INT32_MIN)),
    FORM("xor $a,$a", move(o.a, SLO(0))),
    FORM("mov $a,0xffffffff", move(o.a, SLO(UINT32_MAX))),
    FORM("mov $A,0xffffffffffffffff", move(o.a, SLO(-1))),
    FORM("movabs $A,0x100000000", move(o.a, SLO(1) << 32)),
    FORM("push $A", push(o.a)),
    FORM("pop $A", pop(o.a)),
    FORM("add $A,$B", compute(operation::ADD, o.a, o.b)),
    FORM("sub $A,$B", compute(operation::SUB, o.a, o.b)),
    FORM("and $A,$B", compute(operation::AND, o.a, o.b)),
    FORM("or $A,$B", compute(operation::OR, o.a, o.b)),
    FORM("xor $A,$B", compute(operation::XOR, o.a, o.b)),
    FORM("imul $A,$B", compute(operation::MUL, o.a, o.b)),
    FORM("imul $A,QWORD PTR $M", compute(operation::MUL, o.a, o.m)),
    FORM("add $A,0xffffffffffffff80", compute(operation::ADD, o.a, SLO(-128))),
    FORM("imul $A,$A,0x7f", compute(operation::MUL, o.a, SLO(127))),
    FORM("imul $A,$A,0x80", compute(operation::MUL, o.a, SLO(128))),
    FORM("and $A,0x80", compute(operation::AND, o.a, SLO(128))),
    FORM("movabs rdx,0x100000000; or $A,rdx", compute(operation::OR, o.a, SLO(1) << 32)),
    FORM("mov eax,0x5; imul $A; mov r9,rdx", multiply_high(reg::R9, o.a, 5)),
    FORM("neg $A", negate(o.a)),
    FORM("shl $A,0x3f", shift_by(shift::LEFT, o.a, 63)),
    FORM("sar $A,0x2", shift_by(shift::RIGHT, o.a, 66)),
    FORM("shl $A,cl", shift_by(shift::LEFT, o.a, reg::CX)),
    FORM("mov rcx,r9; sar $A,cl", shift_by(shift::RIGHT, o.a, reg::R9)),
    FORM("mov rax,r9; cqo; idiv $A; mov r9,rax", divide(reg::R9, o.a)),
    FORM("cqo; idiv $A; mov rax,rdx", remainder(reg::AX, o.a)),
    FORM("movaps $X,$Y", move(o.x, o.y)),
    FORM("movsd $X,QWORD PTR $M", move(o.x, o.m)),
    FORM("movsd QWORD PTR $M,$X", store(o.m, o.x)),
    FORM("xorps $X,$X", move(o.x, SLO(0))),
    FORM("movabs rax,0x8000000000000000; movq $X,rax", move(o.x, INT64_MIN)),
    FORM("addsd $X,$Y", compute(operation::ADD, o.x, o.y)),
    FORM("subsd $X,$Y", compute(operation::SUB, o.x, o.y)),
    FORM("mulsd $X,QWORD PTR $M", compute(operation::MUL, o.x, o.m)),
    FORM("divsd $X,QWORD PTR $M", compute(operation::DIV, o.x, o.m)),
    FORM("sqrtsd $X,$X", square_root(o.x)),
    FORM("andps $X,$Y", compute(operation::AND, o.x, o.y)),
    FORM("movabs rax,0x7ff0000000000000; movq xmm6,rax; mulsd $X,xmm6", compute(operation::MUL, o.x, 0x7FF0000000000000)),
    FORM("movq $X,$A", move(o.x, o.a)),
    FORM("xorps $X,$X; cvtsi2sd $X,$A", convert(o.x, o.a)),
    FORM("cvttsd2si $A,$X", convert(o.a, o.x)),
    FORM("mov eax,0x90909090; call rax", call(function_at(0x90909090))),
    FORM("mov eax,0x90909090; jmp rax", jump(function_at(0x90909090))),
    FORM("ret", leave()),
};

// clang-format on

TEST(Encoder, FormsWithAllRegisters)
{
    listing l;
    for (const auto &f : forms) {
        for (int i = 0; i < 256; ++i) {
            const int first = i / 16, second = i % 16;
            if (first == second) continue;
            const operands o = {reg(first), reg(second), reg(16 + first), reg(16 + second),
                                memory{reg(second), 0x1234}};
            f.emit(l.code, o);
            l.expect(with_operands(f.text, o));
        }
    }
    l.check();
}

TEST(Encoder, ShapesOfMemory)
{
    listing l;
    int field = 0;
    for (const int offset : {0, 1, 127, 128, INT32_MAX, -1, -128, -129, INT32_MIN}) {
        for (int base = 0; base < 16; ++base) {
            for (int index = 0; index <= 16 * 4; ++index) {
                const memory m{reg(base), offset, index < 64 ? reg(index / 4) : reg::NONE,
                               UCH(1 << index % 4)};
                if (m.index == STACK) continue;
                l.code.move(reg(++field & 15), m);
                l.expect("mov " + name_of(reg(field & 15)) + ",QWORD PTR " + name_of(m));
            }
        }
    }
    l.check();
}

TEST(Encoder, DistancesBothWays)
{
    for (const int between : {0, 125, 126, 127, 1000}) {
        SCOPED_TRACE(between);
        const auto fill = [&](assembler &code) {
            for (int i = 0; i < between; ++i) code.leave();
        };
        assembler code;
        const label back = code.make_label(), ahead = code.make_label();
        code.bind(back);
        code.move(reg::R9, reg::R9); // no code
        code.move(reg::X9, reg::X9);
        fill(code);
        code.jump(back);
        const ULO behind = code.size();
        EXPECT_EQ(ULO(between <= 126 ? 2 : 5), behind - between);
        code.jump(ahead);
        code.call(ahead);
        code.branch_if_byte(relation::EQUAL, {reg::SI}, 7, ahead);
        fill(code);
        code.bind(ahead);
        code.leave();

        const std::string end = hexadecimal(SLO(code.offset_of(ahead))).substr(1);
        auto found = disassembled(code.finish());
        EXPECT_EQ("jmp 0x0", found[between]);
        EXPECT_EQ("jmp " + end, found[behind]);
        EXPECT_EQ("call " + end, found[behind + 5]);
        EXPECT_EQ("cmp BYTE PTR [rsi],0x7", found[behind + 10]);
        EXPECT_EQ("je " + end, found[behind + 13]);
    }
}

// -- As the processor runs it

// Code as a function of the C++ type F, with its answer in RESULT or REAL_RESULT. It stays mapped.
template <class F> F *made(const std::function<void(assembler &)> &emit)
{
    assembler code;
    emit(code);
    code.leave();
    const auto bytes = code.finish();
    void *page =
        mmap(nullptr, bytes.size(), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    EXPECT_NE(MAP_FAILED, page);
    memcpy(page, bytes.data(), bytes.size());
    EXPECT_EQ(0, mprotect(page, bytes.size(), PROT_READ | PROT_EXEC));
    return reinterpret_cast<F *>(page);
}

using of_wholes = SLO(SLO, SLO);
using of_reals = DFL(DFL, DFL);
constexpr reg A = reg::DI, B = reg::SI; // arguments
constexpr reg X = reg::X0, Y = reg::X1;

constexpr SLO least = INT64_MIN, most = INT64_MAX;
// clang-format off
const SLO wholes[] = {0, 1, -1, 2, -2, 7, 63, 64, 127, 128, -128, -129, INT32_MAX, INT32_MIN, most, least,
                      SLO(1) << 31, SLO(1) << 32, -(SLO(1) << 40) - 3};
// clang-format on
const DFL NaN = std::numeric_limits<DFL>::quiet_NaN(), infinity = HUGE_VAL;
const DFL reals[] = {0.0, -0.0, 1, -1, 0.5, 1e300, -1e300, 5e-324, infinity, -infinity, NaN};

bool same(DFL a, DFL b) { return a == b ? std::signbit(a) == std::signbit(b) : a != a && b != b; }

template <class T, size_t n, class Check> void for_pairs(const T (&values)[n], const Check &check)
{
    for (const T a : values) {
        for (const T b : values) {
            SCOPED_TRACE(testing::Message() << a << ", " << b);
            check(a, b);
        }
    }
}

// The same operation with its second operand in a register, in memory and as a constant.
template <class Operation, class Expected>
void for_all_wholes(const Operation &emit, const Expected &expected)
{
    const auto direct = made<of_wholes>([&](assembler &s) { emit(s, B); });
    const auto indirect = made<of_wholes>([&](assembler &s) {
        s.push(B);
        emit(s, memory{STACK});
        s.pop(B);
    });
    for_pairs(wholes, [&](SLO a, SLO b) {
        const SLO wanted = expected(a, b);
        EXPECT_EQ(wanted, direct(a, b));
        EXPECT_EQ(wanted, indirect(a, b));
        EXPECT_EQ(wanted, made<of_wholes>([&](assembler &s) { emit(s, b); })(a, b));
    });
}

TEST(Encoder, ComputesWholeNumbers)
{
    const struct {
        operation op;
        SLO (*expected)(SLO, SLO);
    } cases[] = {
        {operation::ADD, [](SLO a, SLO b) { return SLO(ULO(a) + ULO(b)); }},
        {operation::SUB, [](SLO a, SLO b) { return SLO(ULO(a) - ULO(b)); }},
        {operation::MUL, [](SLO a, SLO b) { return SLO(ULO(a) * ULO(b)); }},
        {operation::AND, [](SLO a, SLO b) { return a & b; }},
        {operation::OR, [](SLO a, SLO b) { return a | b; }},
        {operation::XOR, [](SLO a, SLO b) { return a ^ b; }},
    };
    for (const auto &c : cases) {
        const auto emit = [&](assembler &s, const auto &by) {
            s.compute(c.op, A, by);
            s.move(RESULT, A);
        };
        for_all_wholes(emit, c.expected);
    }
}

TEST(Encoder, DividesAndShifts)
{
    const auto with_result = [](void (*emit)(assembler &)) {
        return made<of_wholes>([&](assembler &s) { emit(s), s.move(RESULT, A); });
    };
    const auto left = with_result([](assembler &s) { s.shift_by(shift::LEFT, A, B); });
    const auto right = with_result([](assembler &s) { s.shift_by(shift::RIGHT, A, B); });
    const auto quotient = with_result([](assembler &s) { s.divide(A, B); });
    const auto rest = with_result([](assembler &s) { s.remainder(A, B); });
    const auto high = with_result([](assembler &s) { s.multiply_high(A, B, least / 3); });
    for_pairs(wholes, [&](SLO a, SLO b) {
        EXPECT_EQ(SLO(ULO(a) << (b & 63)), left(a, b));
        EXPECT_EQ(a >> (b & 63), right(a, b));
        EXPECT_EQ(SLO((static_cast<__int128>(b) * (least / 3)) >> 64), high(a, b));
        if (b == 0 || (a == least && b == -1)) return;
        EXPECT_EQ(a / b, quotient(a, b));
        EXPECT_EQ(a % b, rest(a, b));
    });
}

// clang-format off
#define RELATION(name, op, T) \
    {relation::name, [](SLO a, SLO b) { return T(a) op T(b); }, [](DFL a, DFL b) { return a op b; }}
const struct {
    relation is;
    bool (*of_wholes)(SLO, SLO);
    bool (*of_reals)(DFL, DFL);
} relations[] = {
    RELATION(EQUAL, ==, SLO),          RELATION(NOT_EQUAL, !=, SLO),
    RELATION(LESS, <, SLO),            RELATION(GREATER_OR_EQUAL, >=, SLO),
    RELATION(LESS_OR_EQUAL, <=, SLO),  RELATION(GREATER, >, SLO),
    RELATION(BELOW, <, ULO),           RELATION(ABOVE_OR_EQUAL, >=, ULO),
    RELATION(BELOW_OR_EQUAL, <=, ULO), RELATION(ABOVE, >, ULO),
};
// clang-format on

// By a branch and by the branch on its contrary: 4 where it holds, 2 where not.
template <class T, class U> void ask_in_all_ways(assembler &s, relation r, const T &a, const U &b)
{
    const label yes = s.make_label(), no = s.make_label();
    s.move(reg::R8, 0);
    s.branch_if(r, a, b, yes);
    s.compute(operation::ADD, reg::R8, SLO(2));
    s.bind(yes);
    s.branch_if(r, a, b, no, false);
    s.compute(operation::ADD, reg::R8, SLO(4));
    s.bind(no);
    s.move(RESULT, reg::R8);
}

TEST(Encoder, Compares)
{
    for (const auto &c : relations) {
        SCOPED_TRACE(int(c.is));
        for_all_wholes([&](assembler &s, const auto &b) { ask_in_all_ways(s, c.is, A, b); },
                       [&](SLO a, SLO b) { return c.of_wholes(a, b) ? 4 : 2; });
        if (c.is <= relation::ABOVE && c.is != relation::EQUAL && c.is != relation::NOT_EQUAL)
            continue;
        const auto code =
            made<SLO(DFL, DFL)>([&](assembler &s) { ask_in_all_ways(s, c.is, X, Y); });
        for_pairs(reals, [&](DFL a, DFL b) {
            const auto with_number = made<SLO(DFL)>(
                [&](assembler &s) { ask_in_all_ways(s, c.is, X, std::bit_cast<SLO>(b)); });
            EXPECT_EQ(c.of_reals(a, b) ? 4 : 2, code(a, b));
            EXPECT_EQ(c.of_reals(a, b) ? 4 : 2, with_number(a));
        });
    }
}

TEST(Encoder, ComputesFloats)
{
    const struct {
        operation op;
        DFL (*expected)(DFL, DFL);
    } cases[] = {
        {operation::ADD, [](DFL a, DFL b) { return a + b; }},
        {operation::SUB, [](DFL a, DFL b) { return a - b; }},
        {operation::MUL, [](DFL a, DFL b) { return a * b; }},
        {operation::DIV, [](DFL a, DFL b) { return a / b; }},
    };
    for (const auto &c : cases) {
        const auto code = made<of_reals>([&](assembler &s) { s.compute(c.op, X, Y); });
        for_pairs(reals, [&](DFL a, DFL b) { EXPECT_TRUE(same(c.expected(a, b), code(a, b))); });
    }
    const auto root = made<of_reals>([](assembler &s) { s.square_root(X); });
    const auto size = made<of_reals>([](assembler &s) { s.compute(operation::AND, X, most); });
    for (const DFL a : reals) {
        const auto constant =
            made<of_reals>([&](assembler &s) { s.move(X, std::bit_cast<SLO>(a)); });
        EXPECT_TRUE(same(a, constant(1, 1)));
        EXPECT_TRUE(same(std::sqrt(a), root(a, 1)));
        EXPECT_EQ(std::bit_cast<ULO>(a) & most, std::bit_cast<ULO>(size(a, 1)));
    }
    const ULO payload = 0xFFF8000000001234;
    EXPECT_EQ(payload & most, std::bit_cast<ULO>(size(std::bit_cast<DFL>(payload), 0)));
}

TEST(Encoder, ConvertsBothWays)
{
    const auto to = made<SLO(DFL)>([](assembler &s) { s.convert(RESULT, X); });
    const auto from = made<DFL(SLO)>([](assembler &s) { s.convert(X, A); });
    for (const SLO a : wholes) EXPECT_EQ(DFL(a), from(a));
    for (const DFL a : {0.9, -0.9, -1.5, 4e18, -9223372036854775808.0}) EXPECT_EQ(SLO(a), to(a));
    for (const DFL a : {9223372036854775808.0, -1e300, infinity, NaN}) EXPECT_EQ(least, to(a));
}

TEST(Encoder, ReadsAndWritesMemory)
{
    const auto code = made<SLO(SLO *, SLO, DFL)>([](assembler &s) {
        const auto word = [](int index) { return memory{A, 8 * (index - 3), B, 8}; };
        const auto high = [](int index) { return memory{A, 8 * (index - 3) + 2, B, 8}; };
        const label other = s.make_label();
        s.store(word(0), X);
        s.store(word(1), SLO(-1));
        s.move(reg::R9, 0x123456789ABC);
        s.store(word(2), reg::R9);
        s.store_byte(word(3), 0x80);
        s.store_pair(high(3), 0xFEDC);
        s.move(reg::R8, word(1));
        s.store(word(4), reg::R8);
        s.move(reg::X9, word(0));
        s.convert(reg::X10, reg::R8);
        s.compute(operation::MUL, reg::X9, reg::X10);
        s.store(word(5), reg::X9);
        s.move(reg::R9, 0x80);
        s.address(RESULT, {reg::R9, 1, reg::R9, 2});
        s.branch_if_byte(relation::NOT_EQUAL, word(3), 0x80, other);
        s.branch_if_pair(relation::NOT_EQUAL, high(3), 0xFEDC, other);
        s.negate(RESULT);
        s.compute(operation::XOR, RESULT, -1);
        s.bind(other);
    });
    std::vector<SLO> words(6, 0x6666555544443333);
    const std::vector<SLO> expected = {std::bit_cast<SLO>(2.5), -1, 0x123456789ABC,
                                       0x66665555FEDC3380,      -1, std::bit_cast<SLO>(-2.5)};
    EXPECT_EQ(3 * 0x80, code(words.data(), 3, 2.5));
    EXPECT_EQ(expected, words);
}

SLO twice(SLO a) { return 2 * a; }

TEST(Encoder, CallsAndJumps)
{
    // twice(product(n)) with product(n) = n * product(n - 1), and product(0) = twice(1)
    const auto code = made<SLO(SLO)>([](assembler &s) {
        const auto address_of_twice = reinterpret_cast<const void *>(&twice);
        const label product = s.make_label(), one = s.make_label();
        s.push(reg::BX);
        s.call(product);
        s.pop(reg::BX);
        s.move(A, RESULT);
        s.jump(address_of_twice);
        s.bind(product);
        s.push(A);
        s.branch_if(relation::EQUAL, A, SLO(0), one);
        s.compute(operation::SUB, A, SLO(1));
        s.call(product);
        s.pop(A);
        s.compute(operation::MUL, RESULT, A);
        s.leave();
        s.bind(one);
        s.address(A, {A, 1});
        s.call(address_of_twice);
        s.move_stack(8);
    });
    EXPECT_EQ(2 * 2, code(0));
    EXPECT_EQ(2 * 2 * 3628800, code(10));
}

} // namespace

#endif
