// The dump of listings, the checksum of stored programs and the clock text. Dump and checksum go by
// tables that are worked out at compile time, one entry for each byte.
#include "kestrin/strings.h"

#include <array>
#include <ctime>

#include "strings/block.h"
#include "strings/scratch.h"
#include "strings/state.h"

// -- Dump --------------------------------------------------------------------------------------

namespace {

using dump_cell = std::array<CHR, 3>;

constexpr dump_cell cell_of(unsigned code)
{
    const CHR c = static_cast<CHR>(code);
    if (c == ' ') return {' ', '_', '_'};
    if (std::string_view("\"#()\\").find(c) != std::string_view::npos) return {' ', '\\', c};
    if (code > 32 && code < 127) return {' ', ' ', c};
    const CHR *digits = "0123456789ABCDEF";
    return {' ', digits[code / 16], digits[code % 16]};
}

constexpr auto dump_cells = [] {
    std::array<dump_cell, 256> cells{};
    for (unsigned code = 0; code < 256; code++) cells[code] = cell_of(code);
    return cells;
}();

} // namespace

CHR *strdump(CHR **targ, const CHR *source)
{
    know_formats();
    CHR *fresh = nullptr;
    CHR *out = must_resize(&fresh, len(source) * sizeof(dump_cell), site::CAT);
    for (CHR c : view(source)) {
        memcpy(out, dump_cells[static_cast<UCH>(c)].data(), sizeof(dump_cell));
        out += sizeof(dump_cell);
    }
    return adopt(targ, fresh);
}

// -- Checksum ----------------------------------------------------------------------------------

namespace {

constexpr ULO POLYNOMIAL = 0xEDB88320EDB88320;

constexpr auto crc_steps = [] {
    std::array<ULO, 256> steps{};
    for (ULO code = 0; code < 256; code++) {
        ULO sum = code;
        for (int bit = 0; bit < 8; bit++) sum = sum & 1 ? sum >> 1 ^ POLYNOMIAL : sum >> 1;
        steps[code] = sum;
    }
    return steps;
}();

} // namespace

ULO crcsum(const CHR *string)
{
    if (len(string) == 0) return 0;
    ULO sum = ~ULO(0);
    for (CHR c : view(string)) {
        // Bytes from 128 on reach the upper bits as well: stored programs carry this sum.
        sum ^= static_cast<ULO>(SLO(static_cast<SCH>(c)));
        sum = sum >> 8 ^ crc_steps[sum & 0xFF];
    }
    return ~sum;
}

// -- Clock -------------------------------------------------------------------------------------

CHR *string_time(CHR **targ)
{
    CHR text[26] = "";
    const time_t now = time(nullptr);
    ctime_r(&now, text);
    return alltrim(targ, get_std_buff(targ, text));
}
