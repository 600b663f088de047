// Groups of control mnemonics. A unit may add rows that duplicate a control instruction; every
// place that must know a control construct asks for membership in a group and never for a name.
#pragma once

// Each is named by the instruction whose row its members are aliases of.
// clang-format off
#define EACH_GROUP(G)                                                                              \
    G(PROGN) G(SETQ) G(ALSETQ) G(ARSETQ) G(INDEX) G(ALINDEX) G(DEFUN) G(IF) G(WHILE) G(FOR)        \
    G(BREAK) G(EXIT) G(COMMENTS) G(AND) G(AND_2) G(OR) G(OR_2)
// clang-format on

enum group : unsigned {
#define GROUP(name) GROUP_##name,
    EACH_GROUP(GROUP)
#undef GROUP
};

// A set of groups, as bits.
using group_set = unsigned;
constexpr group_set in(group g) { return 1u << g; }
// Facts of a row. The first operand is an array that is read; a variable that is set.
constexpr group_set READS_ARRAY = in(GROUP_INDEX) | in(GROUP_ALINDEX);
constexpr group_set ASSIGNS = in(GROUP_SETQ) | in(GROUP_ALSETQ) | in(GROUP_ARSETQ);
constexpr group_set SETS_VARIABLE = ASSIGNS | in(GROUP_FOR);
// The first operand's number stands in the node itself.
constexpr group_set VARIABLE_FIRST = ASSIGNS | READS_ARRAY;
