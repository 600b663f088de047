#include "workshop/origins.h"

#include <algorithm>
#include <unordered_map>

#include "kestrin/strings.h"
#include "vm/engine.h"
#include "vm/handler.h"
#include "workshop/program.h"

namespace {

// The definitions of a tree by the nodes of their bodies.
std::unordered_map<node_index, const node *> definitions_in(const tree &t)
{
    std::unordered_map<node_index, const node *> by_body;
    for (const node &form : t.nodes)
        if (is_definition(form) && form.first != NO_NODE) by_body[t.nodes[form.first].next] = &form;
    return by_body;
}

void add_images(const ULO *image, std::vector<const ULO *> *all)
{
    for (ULO i = 0; i < image_udfs(image); i++) {
        const ULO *udf = node_at(image + image::UDF_TABLE + i);
        all->push_back(udf);
        add_images(udf, all);
    }
}

} // namespace

origins::compiled origins::program() const
{
    return {session_.prog_text, session_.program_places, session_.program, program_};
}

origins::compiled origins::set() const
{
    return {the_engine.global_udf_code, session_.set_places, session_.set, set_};
}

const code_place *origins::place_in(const compiled &code, const ULO *word)
{
    const ULO from = reinterpret_cast<ULO>(code.code), at = reinterpret_cast<ULO>(word);
    if (code.code == nullptr || code.places == nullptr || at < from || at > from + len(code.code))
        return nullptr;
    const ULO number = (at - from) / sizeof(ULO);
    auto behind = std::upper_bound(code.places->begin(), code.places->end(), number,
                                   [](ULO n, const code_place &p) { return n < p.word; });
    return behind == code.places->begin() ? nullptr : &*--behind;
}

origin origins::find(const ULO *word) const
{
    for (const compiled &code : {program(), set()})
        if (const code_place *place = place_in(code, word); place != nullptr) {
            const node &found = code.parsed.nodes[place->node];
            return {&code.file, code.parsed.place_of(found), found.name};
        }
    return {};
}

std::vector<function_origin> origins::functions() const
{
    std::vector<function_origin> all;
    for (const compiled &code : {program(), set()}) {
        if (code.code == nullptr || code.places == nullptr) continue;
        const tree &t = code.parsed;
        const auto definitions = definitions_in(t);
        std::vector<const ULO *> images;
        add_images(reinterpret_cast<const ULO *>(code.code), &images);
        for (const ULO *image : images) {
            const code_place *body = place_in(code, image_main_node(image));
            const auto found = definitions.find(body == nullptr ? NO_NODE : body->node);
            if (found == definitions.end())
                all.push_back({image, "?", &code.file, {0, 0}});
            else
                all.push_back({image, std::string(t.token_of(t.nodes[found->second->first])),
                               &code.file, t.place_of(*found->second)});
        }
    }
    return all;
}
