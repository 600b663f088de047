// Numbers to strings and back, printed and as raw images. A printed number is put together on the
// stack and stored once; it never depends on the locale.
#include "kestrin/strings.h"

#include <algorithm>
#include <charconv>

#include "strings/block.h"
#include "strings/scratch.h"

// -- Printed -----------------------------------------------------------------------------------

namespace {

constexpr size_t LONGEST_NUMBER = 32;
constexpr int FRACTION_DIGITS = 16;

template <class T> CHR *store_decimal(CHR **targ, T num)
{
    CHR text[LONGEST_NUMBER];
    const CHR *end = std::to_chars(text, text + sizeof text, num).ptr;
    return store(targ, {text, end}, site::GET_STD_BUFF);
}

CHR upper_letter(CHR c) { return c >= 'a' && c <= 'z' ? static_cast<CHR>(c - 'a' + 'A') : c; }

} // namespace

CHR *equ_num(CHR **targ, SLO num) { return store_decimal(targ, num); }

CHR *equ_unum(CHR **targ, ULO num) { return store_decimal(targ, num); }

CHR *equ_numhex(CHR **targ, ULO num)
{
    CHR text[] = "0x0000000000000000";
    for (CHR *digit = text + sizeof text - 2; num != 0; num >>= 4)
        *digit-- = "0123456789ABCDEF"[num & 15];
    return store(targ, text, site::GET_STD_BUFF);
}

CHR *equ_fnum(CHR **targ, DFL fnum)
{
    CHR text[LONGEST_NUMBER];
    CHR *end = std::to_chars(text, text + sizeof text, fnum, std::chars_format::scientific,
                             FRACTION_DIGITS)
                   .ptr;
    std::transform(text, end, text, upper_letter);
    return store(targ, {text, end}, site::GET_STD_BUFF);
}

// -- Raw images --------------------------------------------------------------------------------

namespace {

template <class T> CHR *store_image(CHR **targ, T value)
{
    CHR image[sizeof value];
    memcpy(image, &value, sizeof value);
    return store(targ, {image, sizeof image}, site::MK_FST_BUFF);
}

template <class T> T read_image(const CHR *string)
{
    T value{};
    if (string != nullptr) memcpy(&value, string, std::min<ULO>(len(string), sizeof value));
    return value;
}

} // namespace

CHR *sch2str(CHR **targ, SCH num) { return store_image(targ, num); }

CHR *ssh2str(CHR **targ, SSH num) { return store_image(targ, num); }

CHR *slo2str(CHR **targ, SLO num) { return store_image(targ, num); }

CHR *ptr2str(CHR **targ, void *ptr) { return store_image(targ, ptr); }

CHR *dfl2str(CHR **targ, DFL num) { return store_image(targ, num); }

SCH str2sch(const CHR *string) { return read_image<SCH>(string); }

SSH str2ssh(const CHR *string) { return read_image<SSH>(string); }

SLO str2slo(const CHR *string) { return read_image<SLO>(string); }

void *str2ptr(const CHR *string) { return read_image<void *>(string); }

DFL str2dfl(const CHR *string) { return read_image<DFL>(string); }
