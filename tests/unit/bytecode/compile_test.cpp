// Compiled words, the debug text, and what linking makes of them: worked examples word by word, and
// the form of every image that the compiler makes from accepted or garbage text.

#include "bytecode/compile.h"

#include <gtest/gtest.h>

#include "bytecode/link.h"
#include "bytecode/verify.h"
#include "frontend/forms.h"
#include "frontend/isa.h"
#include "frontend/reader.h"
#include "frontend/words.h"
#include "tests/kit/passes.h"
#include "tests/unit/frontend/random_source.h"
#include "vm/image.h"

namespace {

using words = std::vector<ULO>;

words words_of(const scratch &code)
{
    const auto *first = reinterpret_cast<const ULO *>(code.s);
    return {first, first + len(code.s) / 8};
}

words compiled(const std::string &text, UCH debug_level = 0, const CHR *name = nullptr)
{
    scratch code;
    assign(&code.s, text);
    kestrin_compile(&code.s, debug_level, name);
    EXPECT_EQ(0u, len(code.s) % 8);
    return words_of(code);
}

// The debug text of an image.
std::string debug_text(const words &code, ULO image)
{
    return reinterpret_cast<const CHR *>(
        &code[image + image::UDF_TABLE + code[image + image::UDFS]]);
}

class bytecode : public testing::Test {
protected:
    void SetUp() override { kit::start_passes(); }
};

TEST_F(bytecode, worked_examples)
{
    EXPECT_EQ((words{0x255, 1, 0, 0, 0x54, 2, 2, 6, 0x4D4, 0, 1, 0x49, 5, 0x69, 0}),
              compiled("(PROGN (SETQ@I X@I 5) X@I)"));
    EXPECT_EQ((words{0x6D5, 0, 0,    1, 1, 0x255,  1, 1, 0, 0xC054, 1,
                     0x56,  0, 0x54, 1, 1, 0x184C, 0, 1, 1, 0x49,   41}),
              compiled("(PROGN (DEFUN F (IVAL $1)) (F 41))"));
}

// The main node behind the four words of a plain header.
words main_node(const std::string &text)
{
    words code = compiled(text);
    EXPECT_EQ(image::code('U', 4), code.at(0));
    code.erase(code.begin(), code.begin() + 4);
    return code;
}

ULO call(const char *mnemonic, ULO slot = 0)
{
    return (find_word(mnemonic)->row * 8 + slot) * 128 + 'T';
}

TEST_F(bytecode, nodes)
{
    const struct {
        const char *text;
        words node;
    } cases[] = {
        {"(TIME)", {call("TIME")}},
        {"(LEN \"1234567\")", {call("LEN"), 1, 'S', 7, 0x37363534333231}},
        {"(LEN \"12345678\")", {call("LEN"), 1, 'S', 8, 0x3837363534333231, 0}},
        {"(LEN \"\")", {call("LEN"), 1, 'S', 0, 0}},
        {"(LEN \"\\n\\\\\")", {call("LEN"), 1, 'S', 2, 0x5C0A}},
        {"(LEN@J 2.)", {call("LEN", 1), 1, 'F', 0x4000000000000000}},
        {"(==@F NIL -1)", {call("==", 2), 2, 2, 'Z', 'I', ~ULO(0)}},
        {"(INDEX@S A@S 1)", {call("INDEX", 3), 0, 1, 'I', 1}},
        {"(PROGN B A (ARSETQ A $2 B@F))",
         {call("PROGN"), 3, 3, 4, 5, 'V', 2, 'V', 3, call("ARSETQ"), 3, 2, 3, 'V', 1, 'f', 4}},
        {"(FOR@J I 0 1 9 I)",
         {call("FOR", 1), 5, 6, 7, 8, 9, 'V', 0, 'I', 0, 'I', 1, 'I', 9, 'V', 0}},
        {"(PROGN@Q 1)", {call("PROGN"), 1, 1, 'I', 1}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(c.node, main_node(c.text));
    }
    // Row and slots, the place of the node aside: arguments of a function pass by alias, suffix or
    // not.
    const words by_alias = compiled("(PROGN (DEFUN F (IVAL $1)) (F X@I) (F (IVAL X@I)))");
    EXPECT_EQ((words{0x184C, 0, 1, 1, 'P', 0, 0x184C, 0, 1, 1, call("IVAL"), 1, 'i', 0}),
              words(by_alias.end() - 14, by_alias.end()));
    // A definition leaves no code; the last of a list leaves the empty string.
    const words empty = compiled("(PROGN (DEFUN F (TIME)))");
    EXPECT_EQ((words{call("PROGN"), 1, 1, 'S', 0, 0}), words(empty.end() - 6, empty.end()));
}

// Numbers of definitions go on inside one and are taken again by its siblings.
TEST_F(bytecode, numbers_of_definitions)
{
    const words code =
        compiled("(PROGN (DEFUN A (PROGN (DEFUN B (PROGN (DEFUN C (TIME)) (C) (B) (A)))"
                 " (DEFUN D (TIME)) (B) (D))) (DEFUN E (TIME)) (A) (E))");
    std::vector<ULO> numbers;
    for (ULO i = 0; i + 2 < code.size(); i++)
        if (code[i] == 0x184C) numbers.push_back(code[i + 1]);
    EXPECT_EQ((std::vector<ULO>{2, 1, 0, 1, 2, 0, 1}), numbers);
}

TEST_F(bytecode, debug_text_by_level)
{
    const std::string text =
        "(PROGN (DEFUN F (PROGN (SETQ@I X@I 1) (+ $1 X@I) Y)) (SETQ A 1) (F A) (TIME))";
    EXPECT_EQ(ULO(image::UDF_TABLE + 1), compiled(text)[4] + 4) << "the image of F follows at once";
    for (const UCH level : {1, 2}) {
        const words code = compiled(text, level);
        EXPECT_EQ(level == 1 ? "()(\xFF"
                               "PROGN\xFE"
                               "0\xFE-1\xFFSETQ\xFE"
                               "1\xFE"
                               "2\xFF+\xFE"
                               "52\xFE"
                               "2\xFFTIME\xFE"
                               "164\xFE"
                               "0\xFF)()Main A"
                             : "()()()Main A",
                  debug_text(code, 0));
        EXPECT_EQ("Main:F X Y", debug_text(code, 4 + code[4]));
    }
    EXPECT_EQ("()()()UDFs_CFG", debug_text(compiled("(PROGN NIL)", 2, "UDFs_CFG"), 0));
}

// Walks a compiled image and proves that its nodes lie inside it, in order, and all slots within
// the frame; with `exact` that they fill it without a gap. Operands too many, which only text that
// was not checked has, are reached by no table.
class image_walk {
public:
    image_walk(const words &code, bool exact) : code_(code), exact_(exact) {}
    bool is_sound()
    {
        const ULO end = image(0);
        return sound_ && (exact_ ? end == code_.size() : end <= code_.size());
    }

private:
    const words &code_;
    const bool exact_;
    bool sound_ = true;

    ULO at(ULO place)
    {
        if (place >= code_.size()) sound_ = false;
        return sound_ ? code_[place] : 'Z';
    }
    void expect(bool what) { sound_ = sound_ && what; }

    ULO image(ULO from)
    {
        expect(image::letter_of(at(from)) == 'U');
        const ULO main = from + image::payload_of(at(from)), udfs = at(from + image::UDFS);
        expect(udfs < code_.size() && at(from + image::ARGUMENTS) <= at(from + image::SLOTS));
        ULO next = from + image::UDF_TABLE + udfs;
        for (ULO i = 0; i < udfs && sound_; i++) {
            const ULO entry = from + image::UDF_TABLE + i;
            expect(i > 0 || entry + at(entry) >= next);
            if (i == 0) next = entry + at(entry); // behind the debug text
            const ULO target = entry + at(entry);
            expect(exact_ ? target == next : target >= next);
            next = image(target);
        }
        expect(udfs > 0 && exact_ ? main == next : main >= next);
        return sound_ ? node(main, at(from + image::SLOTS)) : 0;
    }
    // Returns the place behind the node.
    ULO node(ULO p, ULO slots)
    {
        const ULO payload = image::payload_of(at(p)), row = image::row_of(payload);
        const CHR letter = image::letter_of(at(p));
        switch (letter) {
        case 'Z': return p + 1;
        case 'I':
        case 'F': return p + 2;
        case 'S': return p + 2 + image::words_of_text(at(p + 1));
        case 'T': break;
        case 'L': return operands(p + 3, at(p + 2), slots);
        default: expect(at(p + 1) < slots); return p + 2;
        }
        expect(row < isa_count && image::slot_of(payload) < 5);
        if (!sound_) return p;
        const group_set groups = word_groups(view(*isa_table[row].mnemonic));
        if (isa_table[row].operands < 0) return operands(p + 2, at(p + 1), slots);
        const ULO count = ULO(isa_table[row].operands);
        if (!(groups & variable_first)) return operands(p + 1, count, slots);
        expect(at(p + 1) < slots);
        return operands(p + 2, count - 1, slots);
    }
    ULO operands(ULO table, ULO count, ULO slots)
    {
        expect(count <= code_.size());
        ULO next = table + count;
        for (ULO i = 0; i < count && sound_; i++) {
            const ULO target = table + i + at(table + i);
            expect(exact_ ? target == next : target >= next);
            next = node(target, slots);
        }
        return next;
    }
};

std::string_view bytes_of(const words &code)
{
    return {reinterpret_cast<const CHR *>(code.data()), code.size() * 8};
}

// The rest of the road, as the driver goes it.
words prepared(const std::string &checked_text, bool types)
{
    std::string text = kit::squeezed(checked_text);
    if (!is_executable_form(text)) text = wrapped(text);
    return compiled(types ? kit::typed(text).text : text, 0);
}

// Linking replaces words and moves nothing: all that is no code word and no reference stays.
void expect_links(const words &code)
{
    scratch linked;
    assign(&linked.s, bytes_of(code));
    kestrin_link(linked.s);
    const words after = words_of(linked);
    ASSERT_EQ(code.size(), after.size());
    EXPECT_EQ(ULO(linked.s) + image::payload_of(code[0]) * 8, after[0]);
    EXPECT_EQ(words(code.begin() + 1, code.begin() + 4),
              words(after.begin() + 1, after.begin() + 4));
    for (ULO i = 0; i < code[image::UDFS]; i++)
        EXPECT_EQ(ULO(linked.s) + (4 + i + code[4 + i]) * 8, after[4 + i]);
}

TEST_F(bytecode, linked_words)
{
    scratch code;
    assign(&code.s, "(PROGN (DEFUN F (IVAL $1)) (F 41) (SETQ X 1))");
    kestrin_compile(&code.s, 0, nullptr);
    const words before = words_of(code);
    kestrin_link(code.s);
    const words after = words_of(code);
    const auto address = [&](ULO word) { return ULO(code.s) + word * 8; };
    EXPECT_EQ(address(13), after[0]);
    EXPECT_EQ(address(5), after[4]);
    EXPECT_EQ(address(9), after[5]);
    EXPECT_EQ(ULO(isa_table[ISA_IVAL].slots[0]), after[9]);
    EXPECT_EQ(address(11), after[10]);
    EXPECT_EQ(0u, after[12]) << "slot of $1";
    EXPECT_EQ(2u, after[14]);
    EXPECT_EQ(address(17), after[15]);
    EXPECT_EQ(ULO(isa_table[ISA_DEFUN].slots[0]), after[17]);
    EXPECT_EQ(address(5), after[18]) << "the image that is called";
    EXPECT_EQ(1u, after[19]);
    EXPECT_EQ(before[22], after[22]);
    EXPECT_EQ(ULO(isa_table[ISA_SETQ].slots[0]), after[23]);
    EXPECT_EQ(before[24], after[24]) << "slot of X";
}

TEST_F(bytecode, accepted_text_makes_sound_code)
{
    random_source source(40, false);
    int made = 0;
    for (int i = 0; i < 6000; i++) {
        const std::string text =
            kit::checked("(progn " + source.form(4) + " " + source.form(3) + ")");
        if (text.empty() || text.front() != '(') continue;
        for (const bool types : {false, true}) {
            const words code = prepared(text, types);
            ASSERT_TRUE(image_walk(code, true).is_sound()) << text;
            ASSERT_TRUE(verify_bytecode(bytes_of(code))) << text;
            expect_links(code);
        }
        made++;
    }
    EXPECT_LT(250, made);
}

// No text ends the process or leaves its memory, whatever pass it is given to.
TEST_F(bytecode, garbage_is_harmless)
{
    random_source source(41);
    for (int i = 0; i < 20000; i++) {
        const std::string text = source.garbage(14);
        std::string joined;
        join_lines(&joined, text, true);
        kit::checked(joined);
        const std::string checked = kit::checked("(PROGN " + joined + ")");
        if (!checked.empty() && checked.front() == '(') expect_links(prepared(checked, true));
        // Text behind the driver's bindings has not been checked.
        const words code = prepared("(PROGN (SETQ $1 " + text + ") 1)", i % 2);
        ASSERT_TRUE(image_walk(code, false).is_sound()) << text;
        expect_links(code);
    }
}

} // namespace
