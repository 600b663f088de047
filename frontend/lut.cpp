// The sorted key table. Small on purpose: one search serves adding and finding, and the table grows
// in fixed steps, because a few hundred keys are all that it usually holds.

#include "frontend/lut.h"

#include <cstdlib>
#include <cstring>

#include "kestrin/strings.h"
#include "strings/fatal.h"
#include "strings/scratch.h"

FATAL_SITE(LUT_ADD_TABLE, "kestrin", "lut_add", 2)
FATAL_SITE(LUT_ADD_ROWS, "kestrin", "lut_add", 3)
FATAL_SITE(LUT_ADD_FIRST, "kestrin", "lut_add", 4)
FATAL_SITE(LUT_ADD_GROW, "kestrin", "lut_add", 5)
FATAL_SITE(LUT_ADD_ENTRY, "kestrin", "lut_add", 6)
FATAL_SITE(MAPCAR_TABLE, "kestrin", "func__mapcar", 24)
FATAL_SITE(MAPCAR_ROWS, "kestrin", "func__mapcar", 25)

namespace {

constexpr ULO STEP = 128;

lut_entry *new_entry(const CHR *key, SLO value, ULO scope, const fatal_site &site)
{
    auto *entry = static_cast<lut_entry *>(malloc(sizeof(lut_entry)));
    if (entry == nullptr) fatal(site);
    *entry = {scope, nullptr, value};
    equ(&entry->key, key);
    return entry;
}

lut *new_table(ULO capacity, ULO scope, const fatal_site &header, const fatal_site &rows)
{
    auto *table = static_cast<lut *>(malloc(sizeof(lut)));
    if (table == nullptr) fatal(header);
    auto **entries = static_cast<lut_entry **>(malloc(capacity * sizeof(lut_entry *)));
    if (entries == nullptr) fatal(rows);
    *table = {0, capacity, scope, entries};
    return table;
}

// First position whose entry is not below `key` in `scope`.
ULO lower_bound(const lut *table, const CHR *key, ULO scope)
{
    ULO lo = 0, hi = table->lut_count;
    while (lo < hi) {
        const ULO mid = lo + (hi - lo) / 2;
        const lut_entry *entry = table->lut_entries[mid];
        const SCH order = cmp_s(entry->key, key);
        if (order < 0 || (order == 0 && entry->scope < scope))
            lo = mid + 1;
        else
            hi = mid;
    }
    return lo;
}

void reserve(lut *table, ULO count)
{
    if (count <= table->lut_capacity) return;
    const ULO capacity = (count + STEP - 1) / STEP * STEP;
    auto **grown =
        static_cast<lut_entry **>(realloc(table->lut_entries, capacity * sizeof(lut_entry *)));
    if (grown == nullptr) fatal(site::LUT_ADD_GROW);
    table->lut_entries = grown;
    table->lut_capacity = capacity;
}

void insert(lut *table, ULO position, lut_entry *entry)
{
    reserve(table, table->lut_count + 1);
    lut_entry **place = table->lut_entries + position;
    memmove(place + 1, place, (table->lut_count - position) * sizeof(lut_entry *));
    *place = entry;
    table->lut_count++;
}

void free_entry(lut_entry *entry)
{
    free_string(&entry->key);
    free(entry);
}

void free_header(lut **table)
{
    free((*table)->lut_entries);
    free(*table);
    *table = nullptr;
}

} // namespace

UCH lut_add(lut **table, const CHR *key, SLO value)
{
    const bool is_first = *table == nullptr;
    if (is_first) *table = new_table(STEP, 0, site::LUT_ADD_TABLE, site::LUT_ADD_ROWS);
    const ULO scope = (*table)->lut_scope, position = lower_bound(*table, key, scope);
    if (position < (*table)->lut_count) {
        lut_entry *entry = (*table)->lut_entries[position];
        if (entry->scope == scope && cmp(entry->key, key)) {
            entry->value = value;
            return 1;
        }
    }
    insert(*table, position,
           new_entry(key, value, scope, is_first ? site::LUT_ADD_FIRST : site::LUT_ADD_ENTRY));
    return 0;
}

void lut_add_sorted(lut *table, const lut_pair *fresh, ULO count)
{
    reserve(table, table->lut_count + count);
    ULO from = table->lut_count, to = from + count;
    table->lut_count = to;
    scratch key;
    for (ULO i = count; i > 0; i--) {
        assign(&key.s, fresh[i - 1].key);
        while (from > 0 && cmp_s(table->lut_entries[from - 1]->key, key.s) > 0)
            table->lut_entries[--to] = table->lut_entries[--from];
        table->lut_entries[--to] =
            new_entry(key.s, fresh[i - 1].value, table->lut_scope, site::LUT_ADD_ENTRY);
    }
}

UCH lut_get(const lut *table, const CHR *key, SLO *value)
{
    ULO position = lower_bound(table, key, 0);
    if (position == table->lut_count || !cmp(table->lut_entries[position]->key, key)) return 0;
    const ULO last = table->lut_count - 1;
    const ULO first = position;
    while (position < last && cmp(table->lut_entries[position + 1]->key, key)) position++;
    // The last place of the table, reached by walking, is deliberately not read.
    if (position == last && position > first) position--;
    if (value != nullptr) *value = table->lut_entries[position]->value;
    return 1;
}

void lut_prune(lut *table)
{
    ULO kept = 0;
    for (ULO i = 0; i < table->lut_count; i++) {
        if (table->lut_entries[i]->scope > table->lut_scope)
            free_entry(table->lut_entries[i]);
        else
            table->lut_entries[kept++] = table->lut_entries[i];
    }
    table->lut_count = kept;
}

lut *lut_make_view(const lut *table)
{
    if (table == nullptr) return nullptr;
    lut *made =
        new_table(table->lut_capacity, table->lut_scope, site::MAPCAR_TABLE, site::MAPCAR_ROWS);
    for (ULO i = 0; i < table->lut_count; i++)
        if (table->lut_entries[i]->scope == 0)
            made->lut_entries[made->lut_count++] = table->lut_entries[i];
    return made;
}

void lut_free_view(lut **table)
{
    if (*table == nullptr) return;
    (*table)->lut_scope = 0;
    lut_prune(*table);
    free_header(table);
}

void lut_free(lut **table)
{
    if (*table == nullptr) return;
    for (ULO i = 0; i < (*table)->lut_count; i++) free_entry((*table)->lut_entries[i]);
    free_header(table);
}
