// A sorted key table with scopes: counted strings to signed numbers. The syntax checker keeps the
// known functions in it, mapcar its view of them, the decompiler the names that it makes up.
#pragma once

#include <string_view>

#include "kestrin/types.h"

struct lut_entry {
    ULO scope;
    CHR *key; // counted string, owned by the entry
    SLO value;
};

// Entries are sorted by cmp_s() of the key, entries of one key by scope.
struct lut {
    ULO lut_count;
    ULO lut_capacity; // 128 at first, growing by 128
    ULO lut_scope;    // scope of the next new entry
    lut_entry **lut_entries;
};

// Enters a key in the current scope. Returns 1 if it stood there already (its value is replaced), 0
// for a new entry. A NULL `*table` is created with the entry in scope 0.
UCH lut_add(lut **table, const CHR *key, SLO value);

// Enters many keys that stand in no scope of the table yet, in one pass; `fresh` gives their keys
// and values in the order of the table.
struct lut_pair {
    std::string_view key;
    SLO value;
};
void lut_add_sorted(lut *table, const lut_pair *fresh, ULO count);

// Finds the value of a key, that of the latest scope if there are several; but a run of equal keys
// that reaches the end of the table answers with the entry before the last. Returns 1 if found.
// `value` may be NULL; `table` must hold an entry.
UCH lut_get(const lut *table, const CHR *key, SLO *value);

// Drops the entries whose scope is above the current one.
void lut_prune(lut *table);

// A table of its own with the entries of scope 0 of another, which they stay with. NULL for NULL.
lut *lut_make_view(const lut *table);
// Frees a table that shares its entries of scope 0 with another one: those stay.
void lut_free_view(lut **table);

// Frees the table with all its entries, and sets the variable to NULL.
void lut_free(lut **table);
