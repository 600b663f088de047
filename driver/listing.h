// Listings of source text and bytecode on stdout.
#pragma once

#include <string_view>

#include "driver/session.h"

// How wide a listing is and what it adds.
struct listing_style {
    ULO width;   // of a separator, and of the lines that keep inside it
    bool dumped; // over-long source is followed by its raw text
};
listing_style style_of(const session &s);

// Lists in a talking run, by a call of `list`, what the switches allow, else says that it is
// disabled.
template <class F> void list_if(bool allowed, const session *s, message_of<> disabled, F list)
{
    if (!s->verbose) return;
    if (allowed)
        list();
    else
        say(disabled);
}

// Lists source text between separators: as it stands if it fits the width, else laid out form by
// form. What is laid out is a source of the same program again.
void kestrin_print(std::string_view text, const listing_style &style);
// Lists one form plain: laid out, without separators and raw text.
void kestrin_print_form(std::string_view form, const listing_style &style);
// Lists the dump of bytecode between separators.
void kestrin_printcode(const CHR *code, const listing_style &style);
