// What kst check tells of a document, as the protocol shows it.
#pragma once

#include "workshop/lsp_document.h"
#include "workshop/lsp_protocol.h"

// Whether forms of a text are nested so deep that passes which recurse could end the process, as
// they do where the stack ends.
bool is_too_deep(std::string_view text);

// The range between two bytes.
json range_json(const document &doc, ULO from, ULO to);

// A diagnostic for each fault or warning. Wants the language started.
json diagnostics_of(const document &doc);
