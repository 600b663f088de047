// The choice of variants, once for each node that is linked.

#include "vm/variants.h"

#include <unordered_map>

#include "vm/handler.h"

namespace {

using rows_by_handler = std::unordered_map<fcall, const variant_row *>;

const rows_by_handler &rows()
{
    static const rows_by_handler *made = [] {
        auto *rows = new rows_by_handler;
        for (const auto &family : {integer_variants, float_variants, compare_variants,
                                   control_variants, variable_variants, array_variants})
            for (const variant_row &row : family) rows->emplace(row.general, &row);
        return rows;
    }();
    return *made;
}

template <class T> leaf_kind kind_of_leaf(const ULO *node)
{
    if (is_node(node, kind<T>::constant)) return CONSTANT;
    if (is_node(node, func__getval) || is_node(node, kind<T>::typed_read)) return VARIABLE;
    return ANY;
}

bool is_leaf(const ULO *node)
{
    for (const fcall leaf :
         {func__dummy_i, func__dummy_f, func__dummy_s, func__dummy_z, func__getval, func__getval_i,
          func__getval_f, func__getval_s, func__getval_z, func__getval_ptr})
        if (is_node(node, leaf)) return true;
    return false;
}

leaf_kind kind_of(const ULO *word, CHR letter)
{
    const ULO *node = node_at(word);
    if (!is_leaf(node)) return EXPRESSION;
    return letter == 'F' ? kind_of_leaf<DFL>(node) : kind_of_leaf<SLO>(node);
}

} // namespace

fcall specialised(fcall general, const ULO *operand_words)
{
    const auto found = rows().find(general);
    if (found == rows().end()) return general;
    const variant_row &row = *found->second;
    const leaf_kind first = kind_of(operand_words + row.first, row.letters[0]);
    if (first == ANY) return general;
    if (row.letters[1] == 0) return row.variants[first];
    const leaf_kind second = kind_of(operand_words + row.first + 1, row.letters[1]);
    return second == ANY ? general : row.variants[first * leaf_kinds + second];
}
