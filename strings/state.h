// What the string library keeps for each thread, and the one way in which memory failures that a
// hook may soften are handled. Set up by the thread set-up of the machine. The hook is read on the
// failure path alone; the formats are there for units, the library writes bytes by tables.
#pragma once

#include "kestrin/strings.h"
#include "strings/fatal.h"

inline constexpr CHR VERSION_STRGLIB[] = "Ostrand StrgLib v.2.2.5.";

// The text of the string library's own sites.
extern const CHR *strings_fault_text;

// An allocation failed: calls the thread's hook and returns, or ends the process if there is none.
void memory_fault(const fatal_site &site, const CHR *text = memory_fault_text);

// Fills the formats of the thread's block on their first use.
inline void know_formats()
{
    if (strings_tls == nullptr || strings_tls->raw_fmt_upper != nullptr) return;
    strings_tls->raw_fmt_upper = "\\0x%02hhX";
    strings_tls->raw_fmt_lower = "\\0x%02hhx";
    strings_tls->dump_fmt = " %02hhX";
}
