// Building, padding and trimming. Each result is laid out once in its final size; blanks are filled
// in around it.
#include "kestrin/strings.h"

#include <algorithm>

#include "strings/ascii_case.h"
#include "strings/block.h"
#include "strings/scratch.h"
#include "strings/tokens.h"

FATAL_SITE(SPACE, "fstchain", "space", 7)

// -- Building ----------------------------------------------------------------------------------

CHR *space(CHR **targ, ULO pos)
{
    CHR *text = must_resize(targ, pos, site::SPACE);
    memset(text, ' ', pos);
    return text;
}

CHR *replicate(CHR **targ, const CHR *source, ULO num)
{
    const ULO size = len(source);
    const fatal_site site = size == 1 ? site::MK_FST_BUFF : site::CAT;
    ULO total;
    if (__builtin_mul_overflow(size, num, &total)) total = ~ULO(0);
    CHR *text = lay(targ, source, view(source).substr(0, std::min(size, total)), 0, total, site);
    // What is there doubles until the text is full.
    for (ULO done = size; done < total; done *= 2)
        memcpy(text + done, text, std::min(done, total - done));
    return text;
}

CHR *rev(CHR **targ, const CHR *source)
{
    equ(targ, source);
    std::reverse(*targ, *targ + len(*targ));
    return *targ;
}

namespace {

// Whole words, fill included: zeros have no case.
template <ULO (*change)(ULO)> CHR *change_case(CHR **targ, const CHR *source)
{
    equ(targ, source);
    const ULO size = len(*targ);
    for (ULO i = 0; i < size; i += sizeof(ULO)) store_word(*targ + i, change(load_word(*targ + i)));
    return *targ;
}

} // namespace

CHR *upper(CHR **targ, const CHR *source) { return change_case<upper_word>(targ, source); }

CHR *lower(CHR **targ, const CHR *source) { return change_case<lower_word>(targ, source); }

// -- Padding -----------------------------------------------------------------------------------

namespace {

// `part` of `source`, cut to `width`, with the share of the missing blanks in front that `in_front`
// takes from their number.
CHR *justify(CHR **targ, const CHR *source, std::string_view part, ULO width,
             ULO (*in_front)(ULO missing))
{
    part = part.substr(0, width);
    const ULO size = part.size();
    const ULO front = in_front(width - size);
    CHR *text = lay(targ, source, part, front, width, site::SPACE);
    memset(text, ' ', front);
    memset(text + front + size, ' ', width - front - size);
    return text;
}

} // namespace

CHR *padl(CHR **targ, const CHR *source, ULO width)
{
    return justify(targ, source, right_trimmed(view(source)), width, [](ULO) { return ULO(0); });
}

CHR *padr(CHR **targ, const CHR *source, ULO width)
{
    return justify(targ, source, left_trimmed(view(source)), width,
                   [](ULO missing) { return missing; });
}

CHR *padc(CHR **targ, const CHR *source, ULO width)
{
    return justify(targ, source, trimmed(view(source)), width,
                   [](ULO missing) { return missing - missing / 2; });
}

// -- Trimming ----------------------------------------------------------------------------------

CHR *ltrim(CHR **targ, const CHR *source) { return keep(targ, source, left_trimmed(view(source))); }

CHR *rtrim(CHR **targ, const CHR *source)
{
    return keep(targ, source, right_trimmed(view(source)));
}

CHR *alltrim(CHR **targ, const CHR *source) { return keep(targ, source, trimmed(view(source))); }

CHR *pack(CHR **targ, const CHR *source)
{
    CHR *const text = alltrim(targ, source);
    const CHR *const end = text + len(text);
    CHR *out = text;
    for (const CHR *in = text; in != end; in++) {
        const bool blank = is_blank(*in);
        if (blank && out[-1] == ' ') continue;
        *out++ = blank ? ' ' : *in;
    }
    return must_resize(targ, static_cast<ULO>(out - text), site::SUBSTR_SAME);
}
