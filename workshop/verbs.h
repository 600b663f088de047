// The verbs, each from the file of its name.
#pragma once

#include "workshop/verb.h"

extern const verb run_verb;
extern const verb check_verb;
extern const verb explain_verb;
extern const verb doc_verb;
extern const verb lsp_verb;
extern const verb repl_verb;
extern const verb fmt_verb;
extern const verb test_verb;
extern const verb pack_verb;
extern const verb profile_verb;
extern const verb trace_verb;
