// Groups of control mnemonics. A unit may add rows that duplicate a control instruction; every
// place that must know a control construct asks for membership in a group and never for a name.
#pragma once

#include <string_view>

#include "kestrin/types.h"

enum group : unsigned {
    GROUP_PROGN,
    GROUP_SETQ,
    GROUP_ALSETQ,
    GROUP_ARSETQ,
    GROUP_INDEX,
    GROUP_ALINDEX,
    GROUP_DEFUN,
    GROUP_IF,
    GROUP_WHILE,
    GROUP_FOR,
    GROUP_BREAK,
    GROUP_EXIT,
    GROUP_COMMENTS,
    GROUP_AND,
    GROUP_AND_2,
    GROUP_OR,
    GROUP_OR_2,
    GROUPS
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

// Blank-framed list of the mnemonic and its aliases; stays NULL if no row has the mnemonic.
void _group_ctrl_cop(CHR **group, const CHR *mnemonic);
// Whether " mnemonic " occurs in a group string.
bool cmp_mnm(std::string_view mnemonic, const CHR *group);

// Builds the seventeen group strings that do not exist yet.
void build_groups();
// The string of a group, NULL before it is built.
const CHR *group_string(group g);
