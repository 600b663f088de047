// What the language server answers to questions about a document.
#pragma once

#include <span>

#include "workshop/lsp_diagnostics.h"

// What the editor can show, and the profile's functions.
struct surroundings {
    const document *profile = nullptr; // NULL: there is none
    std::string profile_uri;
    bool shows_markdown = false;
    bool shows_nested_symbols = false;
    bool shows_parts_of_labels = false;
    bool takes_versions_of_edits = false;
};

struct question {
    const json &params;
    const document *doc; // that it is about
    const surroundings &around;

    std::string_view uri() const { return string_in(member(params, {"textDocument", "uri"})); }
    text_place place() const;
    ULO byte() const { return doc->byte_at(place()); }
};

struct answer {
    json result;
    std::string refusal = {}; // why there is none
};

struct lsp_method {
    std::string_view name;
    answer (*run)(const question &asked);
    bool wants_document = true;
};

// All questions that are answered.
std::span<const lsp_method> lsp_methods();
// The part of the server's capabilities that tells of them.
json lsp_capabilities();

text_place place_in(const json &value);
