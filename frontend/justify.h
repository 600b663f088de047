// The type pass: what can be proved of types goes into the text as suffixes.
#pragma once

#include "kestrin/types.h"

// Replaces `*text`, squeezed text of one form, by typed text and returns the type letter of the
// form: 'I', 'F', 'S', 'Z' or 'U'. `*udf_types` is the type context: 0xFF, then for each known UDF
// its name, 0xFE, its letter and 0xFF; empty counts as the single 0xFF. The UDFs that the text
// defines are appended to it. Can't fail: where nothing is known nothing is written.
UCH kestrin_justify(CHR **text, CHR **udf_types);
