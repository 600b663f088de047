// Layout, assignment, joining and comparing of counted strings, and the failure of an allocation.
// Every other file of the library builds its results on resize(), so the exact size of a block and
// its zero fill are decided here and in seal() alone.
#include "kestrin/strings.h"

#include <algorithm>
#include <cstdlib>

#include "strings/block.h"
#include "strings/scratch.h"
#include "strings/state.h"
#include "strings/tokens.h"

FATAL_SITE(MK_STD_BUFF, "fstchain", "mk_std_buff", 1)
FATAL_SITE(MK_FST_BUFF, "fstchain", "mk_fst_buff", 2)
FATAL_SITE(GET_STD_BUFF, "fstchain", "get_std_buff", 3)
FATAL_SITE(EQU, "fstchain", "equ", 5)
FATAL_SITE(CAT, "fstchain", "cat", 9)
FATAL_SITE(SUBSTR_SAME, "fstchain", "substr", 11)
FATAL_SITE(SUBSTR, "fstchain", "substr", 12)

constinit thread_local strings_state *strings_tls = nullptr;

const CHR *strings_fault_text = "String Library memory allocation fault / out of memory.";

void memory_fault(const fatal_site &site, const CHR *text)
{
    if (strings_tls == nullptr || strings_tls->fault_hook == nullptr) fatal(site, text);
    strings_tls->fault_hook();
}

// -- Blocks ------------------------------------------------------------------------------------

CHR *resize(CHR **targ, ULO size)
{
    if (size > LONGEST_STRING) return nullptr;
    if (*targ == nullptr || padded(len(*targ)) != padded(size)) {
        void *old = *targ == nullptr ? nullptr : *targ - LENGTH_WORD;
        CHR *block = static_cast<CHR *>(realloc(old, LENGTH_WORD + padded(size)));
        if (block == nullptr) return nullptr;
        *targ = block + LENGTH_WORD;
    }
    seal(*targ, size);
    return *targ;
}

CHR *must_resize(CHR **targ, ULO size, const fatal_site &site)
{
    if (resize(targ, size) == nullptr) fatal(site, strings_fault_text);
    return *targ;
}

CHR *lay(CHR **targ, const CHR *source, std::string_view part, ULO front, ULO size,
         const fatal_site &site)
{
    if (source == nullptr || source != *targ) {
        CHR *text = must_resize(targ, size, site);
        if (!part.empty()) memcpy(text + front, part.data(), part.size());
        return text;
    }
    const ULO from = static_cast<ULO>(part.data() - source);
    if (size > len(source)) must_resize(targ, size, site);
    memmove(*targ + front, *targ + from, part.size());
    return must_resize(targ, size, site);
}

CHR *keep(CHR **targ, const CHR *source, std::string_view part)
{
    const fatal_site site = source == *targ ? site::SUBSTR_SAME : site::SUBSTR;
    return lay(targ, source, part, 0, part.size(), site);
}

CHR *store(CHR **targ, std::string_view text, const fatal_site &site)
{
    if (resize(targ, text.size()) == nullptr) {
        memory_fault(site, strings_fault_text);
    } else if (!text.empty()) {
        memcpy(*targ, text.data(), text.size());
    }
    return *targ;
}

CHR *assign(CHR **targ, std::string_view text) { return store(targ, text, site::EQU); }

// -- Making and assigning ----------------------------------------------------------------------

CHR *mk_std_buff(CHR **buff, ULO size)
{
    CHR *block = size > LONGEST_STRING ? nullptr : static_cast<CHR *>(realloc(*buff, size + 1));
    if (block == nullptr) {
        memory_fault(site::MK_STD_BUFF, strings_fault_text);
        return *buff;
    }
    block[size] = 0;
    return *buff = block;
}

CHR *mk_fst_buff(CHR **buff, ULO size)
{
    if (resize(buff, size) == nullptr) memory_fault(site::MK_FST_BUFF, strings_fault_text);
    return *buff;
}

CHR *get_std_buff(CHR **targ, const CHR *buff)
{
    if (buff == nullptr) return mk_fst_buff(targ, 0);

    // The text may lie in the old target, so that one goes last.
    const ULO size = strlen(buff);
    CHR *fresh = nullptr;
    if (resize(&fresh, size) == nullptr) {
        memory_fault(site::GET_STD_BUFF, strings_fault_text);
        return *targ;
    }
    memcpy(fresh, buff, size);
    if (buff == *targ)
        free(*targ);
    else
        free_string(targ);
    return *targ = fresh;
}

CHR *equ(CHR **targ, const CHR *source)
{
    if (source != nullptr && source == *targ) return *targ;
    const ULO size = len(source);
    if (resize(targ, size) == nullptr)
        memory_fault(site::EQU, strings_fault_text);
    else if (source != nullptr)
        memcpy(*targ, source, padded(size));
    return *targ;
}

CHR *cat(CHR **targ, const CHR *source)
{
    if (source == nullptr) return *targ;
    const bool doubles = source == *targ;
    const ULO old = len(*targ), more = len(source);
    CHR *text = must_resize(targ, old + more, site::CAT);
    memcpy(text + old, doubles ? text : source, more);
    return text;
}

CHR *lcat(CHR **targ, const CHR *source)
{
    if (source == *targ) return source == nullptr ? mk_fst_buff(targ, 0) : cat(targ, source);
    const ULO old = len(*targ), more = len(source);
    CHR *text = must_resize(targ, old + more, site::CAT);
    memmove(text + more, text, old);
    if (more != 0) memcpy(text, source, more);
    return text;
}

CHR *free_string(CHR **targ)
{
    if (*targ != nullptr) free(*targ - LENGTH_WORD);
    return *targ = nullptr;
}

// -- Forms that survive running out of memory --------------------------------------------------

namespace {

// Calls one of them while the thread has a hook that does nothing.
template <auto form, class... A> CHR *ignoring_faults(A... operands)
{
    strings_state block{[] {}, nullptr, nullptr, nullptr}, *outer = strings_tls;
    strings_tls = &block;
    CHR *made = form(operands...);
    strings_tls = outer;
    return made;
}

} // namespace

CHR *mk_std_buff_secure(CHR **buff, ULO size) { return ignoring_faults<mk_std_buff>(buff, size); }

CHR *mk_fst_buff_secure(CHR **buff, ULO size) { return ignoring_faults<mk_fst_buff>(buff, size); }

CHR *get_std_buff_secure(CHR **targ, const CHR *buff)
{
    return ignoring_faults<get_std_buff>(targ, buff);
}

CHR *equ_secure(CHR **targ, const CHR *source) { return ignoring_faults<equ>(targ, source); }

CHR *strings_version(CHR **targ) { return store(targ, VERSION_STRGLIB, site::GET_STD_BUFF); }

// -- Reading -----------------------------------------------------------------------------------

ULO len(const CHR *string) { return string == nullptr ? 0 : load_word(string - LENGTH_WORD); }

UCH notempty(const CHR *string) { return !left_trimmed(view(string)).empty(); }

UCH cmp(const CHR *string1, const CHR *string2)
{
    if (string1 == string2) return 1;
    if (string1 == nullptr || string2 == nullptr) return 0;
    const ULO size = len(string1);
    return size == len(string2) && memcmp(string1, string2, padded(size)) == 0;
}

SCH cmp_s(const CHR *string1, const CHR *string2)
{
    if (string1 == string2) return 0;
    if (string1 == nullptr) return -1;
    if (string2 == nullptr) return 1;
    const ULO size1 = len(string1), size2 = len(string2);
    const int order = memcmp(string1, string2, padded(std::min(size1, size2)));
    if (order != 0) return order < 0 ? -1 : 1;
    return static_cast<SCH>((size1 > size2) - (size1 < size2));
}
