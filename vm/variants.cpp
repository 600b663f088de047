// The choice of variants, once for each node that is linked.

#include "vm/variants.h"

#include <unordered_map>

#include "kestrin/mapcar.h"
#include "vm/handler.h"
#include "vm/watch.h"

HANDLER(setq);
HANDLER(setq_i);
HANDLER(setq_f);
HANDLER(alsetq_i);
HANDLER(alsetq_f);

namespace {

using rows_by_handler = std::unordered_map<fcall, const numeric_row *>;

// The operations that have variants.
const rows_by_handler &rows()
{
    static const rows_by_handler *made = [] {
        auto *rows = new rows_by_handler;
        for (const auto &operations : {integer_operations(), float_operations()})
            for (const numeric_row &row : operations)
                for (const fcall handler : {row.handler, row.proved})
                    if (row.variants != nullptr) rows->emplace(handler, &row);
        return rows;
    }();
    return *made;
}

template <class T> operand_kind kind_of(const ULO *node)
{
    if (is_node(node, in_record<T>::constant)) return CONSTANT;
    if (is_node(node, func__getval, in_record<T>::typed_read)) return VARIABLE;
    return EXPRESSION;
}

operand_kind kind_of(const ULO *word, CHR letter)
{
    return letter == 'I' ? kind_of<SLO>(node_at(word)) : kind_of<DFL>(node_at(word));
}

void put(ULO *node, fcall handler) { node[0] = reinterpret_cast<ULO>(handler); }

} // namespace

bool assign_at_once(ULO *node, const variant *value)
{
    if (!is_node(node, func__setq_i, func__setq_f, func__alsetq_i, func__alsetq_f)) return false;
    put(node, value->assigning);
    return true;
}

const variant *specialise(ULO *node, const ULO *words)
{
    const auto found = rows().find(reinterpret_cast<fcall>(node[0]));
    if (found == rows().end()) return nullptr;
    const numeric_row &row = *found->second;
    const variant &chosen = (*row.variants)[kind_of(words, row.letters[0]) * OPERAND_KINDS +
                                            kind_of(words + 1, row.letters[1])];
    put(node, chosen.record);
    return &chosen;
}

namespace {

using handlers_by_form = std::unordered_map<fcall, fcall>;

handlers_by_form list_forms()
{
    handlers_by_form generic;
    for (const auto &[handler, row] : rows())
        for (const variant &made : *row->variants) {
            generic.emplace(made.record, row->handler);
            generic.emplace(made.assigning, func__setq);
        }
    for (const auto &moving : {appending_forms(), setq_forms(), array_forms(), watched_forms()})
        for (const auto &[form, handler] : moving) generic.emplace(form, handler);
    generic.emplace(func__mapcar_without_texts, func__mapcar);
    generic.emplace(func__mapcar_without_code, func__mapcar);
    return generic;
}

} // namespace

fcall generic_handler(fcall form)
{
    static const handlers_by_form generic = list_forms();
    const auto found = generic.find(form);
    return found == generic.end() ? form : found->second;
}
