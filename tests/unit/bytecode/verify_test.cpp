// The verifier: each fault alone is found, and what stands beside it is not. What the compiler
// makes passes in the tests of the compiler and the decompiler; what no compiler makes is run by
// the fuzzer of images.

#include "bytecode/verify.h"

#include <gtest/gtest.h>

#include "bytecode/link.h"
#include "frontend/isa.h"
#include "tests/kit/code.h"
#include "vm/engine.h"
#include "vm/image.h"

namespace {

using Verify = kit::with_passes<testing::Test>;

ULO call(ULO row, ULO slot = 0) { return image::code('T', image::instruction(row, slot)); }
const ULO local = image::code('L', image::instruction(ISA_DEFUN, 0));
const ULO global = image::code('G', image::instruction(ISA_DEFUN, 0));

struct sound_case {
    const char *name;
    bool is_sound;
    kit::code words;
};

// A root image of three slots with this main node.
bool passes(const kit::code &main_node)
{
    kit::code words = {image::code('U', 4), 3, 0, 0};
    words.insert(words.end(), main_node.begin(), main_node.end());
    return verify_bytecode(kit::bytes_of(words));
}

TEST_F(Verify, NodesOneByOne)
{
    const sound_case cases[] = {
        {"integer without its value", false, {'I'}},
        {"string as long as the code", false, {'S', 8, 0x6161616161616161}},
        {"string of endless length", false, {'S', ~ULO(0), 0}},
        {"fill behind a string", false, {'S', 1, 0x610061}},
        {"variable", true, {'V', 2}},
        {"variable beyond the frame", false, {'s', 3}},
        {"alias that no call takes", false, {'P', 0}},
        {"unknown letter", false, {'q', 0}},
        {"instruction", true, {call(ISA_IADD, 1), 2, 2, 'Z', 'Z'}},
        {"empty slot", false, {call(ISA_IADD, 2), 2, 2, 'Z', 'Z'}},
        {"row beyond the table", false, {call(isa_count), 'Z'}},
        {"comment", false, {call(ISA_REM), 0}},
        {"definition", false, {call(ISA_DEFUN), 2, 2, 'Z', 'Z'}},
        {"operand missing", false, {call(ISA_IADD), 2}},
        {"operand on itself", false, {call(ISA_IADD), 0, 2, 'Z', 'Z'}},
        {"operand backwards", false, {call(ISA_INEG), ~ULO(0), 'Z'}},
        {"operand twice", false, {call(ISA_IADD), 2, 1, 'Z'}},
        {"operand inside another", false, {call(ISA_IADD), 2, 3, 'S', 5, 'Z'}},
        {"operand inside the table", false, {call(ISA_PROGN), 2, 1, 'Z', 'Z'}},
        {"counted operands", true, {call(ISA_PROGN), 2, 2, 2, 'Z', 'Z'}},
        {"too many of them", false, {call(ISA_PROGN), ~ULO(0) / 8, 2, 2, 'Z', 'Z'}},
        {"assignment", true, {call(ISA_SETQ), 2, 1, 'Z'}},
        {"assignment beyond the frame", false, {call(ISA_SETQ), 3, 1, 'Z'}},
        {"loop", true, {call(ISA_FOR), 5, 6, 6, 6, 6, 'V', 0, 'Z', 'Z', 'Z', 'Z'}},
        {"loop over a constant", false, {call(ISA_FOR), 5, 6, 6, 6, 6, 'I', 0, 'Z', 'Z', 'Z', 'Z'}},
        {"extension that is not linked in", false, {image::code('t'), 1, 'Z'}},
        {"call of nothing", false, {local, 0, 0}},
        {"global call without a set", false, {global, 0, 0}},
    };
    for (const sound_case &c : cases) EXPECT_EQ(c.is_sound, passes(c.words)) << c.name;
    kit::code shared(94, 'Z'); // its word 3 is a leaf and the reference to the last word
    shared[0] = call(ISA_PROGN), shared[1] = 2, shared[2] = 1;
    EXPECT_FALSE(passes(shared));
}

// An image of a UDF, by default with 2 slots, the first of them an argument, in a root that calls
// it.
kit::code with_function(const kit::code &body, const kit::code &main_node, ULO udfs = 1,
                        ULO slots = 2, ULO arguments = 1)
{
    const ULO size = 4 + body.size();
    kit::code words = {image::code('U', 4 + udfs + udfs * size), 1, 0, udfs};
    for (ULO i = 0; i < udfs; i++) words.push_back(udfs - i + i * size);
    for (ULO i = 0; i < udfs; i++) {
        words.insert(words.end(), {image::code('U', 4), slots, arguments, 0});
        words.insert(words.end(), body.begin(), body.end());
    }
    words.insert(words.end(), main_node.begin(), main_node.end());
    return words;
}

TEST_F(Verify, FunctionsAndCalls)
{
    const sound_case cases[] = {
        {"call", true, with_function({'V', 0}, {local, 0, 1, 1, 'P', 0})},
        {"call of the second", true, with_function({'Z'}, {local, 1, 0}, 2)},
        {"number out of scope", false, with_function({'Z'}, {local, 2, 0}, 2)},
        {"a later sibling", false, with_function({local, 1, 0}, {'Z'}, 2)},
        {"own variable assigned", true, with_function({call(ISA_SETQ), 1, 1, 'Z'}, {'Z'})},
        {"argument assigned", false, with_function({call(ISA_SETQ), 0, 1, 'Z'}, {'Z'})},
        {"argument as a loop's", false,
         with_function({call(ISA_FOR), 5, 6, 6, 6, 6, 'V', 0, 'Z', 'Z', 'Z', 'Z'}, {'Z'})},
        {"variable lent as another's", false,
         with_function({'Z'}, {local, 0, 2, 2, 3, 'P', 0, 'P', 0})},
        {"argument without a slot", false,
         with_function({'Z'}, {local, 0, 2, 2, 2, 'Z', 'Z'}, 1, 1, 2)},
        {"argument without a slot, not passed", true, with_function({'Z'}, {local, 0, 0}, 1, 1, 2)},
        {"argument beyond all slots", true,
         with_function({'Z'}, {local, 0, 2, 2, 2, 'Z', 'Z'}, 1, 0, 0)},
        {"other row", false, with_function({'Z'}, {local + 128 * 8, 0, 0})},
        {"node of the parent", false, with_function({call(ISA_INEG), 1}, {'Z'})},
    };
    for (const sound_case &c : cases)
        EXPECT_EQ(c.is_sound, verify_bytecode(kit::bytes_of(c.words))) << c.name;
}

TEST_F(Verify, GlobalCallsGoToTheLinkedSet)
{
    const kit::code set = kit::compiled("(PROGN (DEFUN F (IVAL $1)) (DEFUN G (TIME)) NIL)");
    assign(&the_engine.global_udf_code, kit::bytes_of(set));
    kestrin_link(the_engine.global_udf_code);
    EXPECT_TRUE(passes({global, 0, 1, 1, 'P', 0}));
    EXPECT_TRUE(passes({global, 1, 1, 1, 'P', 0})) << "beyond all slots";
    EXPECT_FALSE(passes({global, 2, 0}));
    free_string(&the_engine.global_udf_code);
}

TEST_F(Verify, ImagesAndDebugText)
{
    const sound_case cases[] = {
        {"nothing", false, {}},
        {"no main node", false, {image::code('U', 4), 0, 0, 0}},
        {"main node behind the code", false, {image::code('U', 5), 0, 0, 0, 'Z'}},
        {"main node in the header", false, {image::code('U', 3), 0, 0, 'Z'}},
        {"wide frame", true, {image::code('U', 4), ~ULO(0), 0, 0, 'Z'}},
        {"more arguments than slots", true, {image::code('U', 4), 0, 9, 0, 'Z'}},
        {"debug text", true, {image::code('U', 5), 0, 0, 0, 0x6E69614D, 'Z'}},
        {"debug text without end", false, {image::code('U', 5), 0, 0, 0, 0x6161616161616161, 'Z'}},
        {"more UDFs than words", false, {image::code('U', 4), 0, 0, ~ULO(0) - 1, 'Z'}},
        {"UDF without words", false, {image::code('U', 5), 0, 0, 1, 1, 'Z'}},
    };
    for (const sound_case &c : cases)
        EXPECT_EQ(c.is_sound, verify_bytecode(kit::bytes_of(c.words))) << c.name;
    // Bytes behind the code, no matter how many, at any address.
    std::string bytes(" ");
    bytes += kit::bytes_of(kit::compiled("(PROGN (DEFUN F (IVAL $1)) (F 41))", 1));
    for (int i = 0; i < 20; i++, bytes += '\xF5')
        EXPECT_TRUE(verify_bytecode(std::string_view(bytes).substr(1)));
}

} // namespace
