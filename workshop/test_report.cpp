#include "workshop/test_report.h"

#include <cstdio>
#include <unistd.h>
#include <utility>

#include "workshop/verb.h"

namespace {

// Letters that XML 1.0 has: other bytes become question marks, and so do those that are no UTF-8.
ULO size_of_letter(std::string_view text)
{
    const auto first = static_cast<UCH>(text[0]);
    if (first < 0x80) return first >= ' ' || first == '\t' || first == '\n' ? 1 : 0;
    const ULO size = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < size) return 0;
    for (ULO i = 1; i < size; i++)
        if ((static_cast<UCH>(text[i]) & 0xC0) != 0x80) return 0;
    const auto second = static_cast<UCH>(text[1]);
    const bool is_overlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool is_no_letter = (first == 0xED && second > 0x9F) ||
                              (first == 0xF4 && second > 0x8F) ||
                              text.starts_with("\xEF\xBF\xBE") || text.starts_with("\xEF\xBF\xBF");
    return is_overlong || is_no_letter ? 0 : size;
}

std::string xml(std::string_view text)
{
    std::string out;
    while (!text.empty()) {
        const ULO size = size_of_letter(text);
        switch (text[0]) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        case '\n': out += "&#10;"; break;
        default: out += size == 0 ? "?" : text.substr(0, size); break;
        }
        text.remove_prefix(size == 0 ? 1 : size);
    }
    return out;
}

// A name that is no directive and stays on its line.
std::string name_in_tap(std::string_view name)
{
    std::string text;
    for (const CHR byte : name) (text += byte == '#' ? "\\" : "") += byte == '\n' ? ' ' : byte;
    return text;
}

void write_case(FILE *file, const test_result &result)
{
    fprintf(file, "  <testcase classname=\"kst\" name=\"%s\" time=\"%.3f\"",
            xml(result.name).c_str(), result.seconds);
    if (result.differences.empty()) {
        fputs("/>\n", file);
        return;
    }
    fprintf(file, ">\n    <failure message=\"%s\">", xml(result.differences[0]).c_str());
    for (const std::string &line : result.differences) fprintf(file, "%s\n", xml(line).c_str());
    fputs("</failure>\n  </testcase>\n", file);
}

} // namespace

test_report::test_report(telling how, ULO count)
    : how_(how), on_terminal_(isatty(STDERR_FILENO) != 0), results_(count), known_(count)
{
}

void test_report::begin()
{
    if (how_ == telling::TAP) printf("TAP version 13\n1..%zu\n", results_.size());
}

void test_report::tell(ULO number, const test_result &result) const
{
    if (how_ == telling::JUNIT) return;
    const bool passed = result.differences.empty();
    if (how_ == telling::TAP)
        printf("%sok %lu - %s\n", passed ? "" : "not ", number + 1,
               name_in_tap(result.name).c_str());
    for (const std::string &line : result.differences)
        printf("%s%s\n", how_ == telling::TAP ? "# " : "", line.c_str());
}

void test_report::tell_progress() const
{
    if (!on_terminal_) return;
    if (done_ == results_.size())
        fputs("\r\33[K", stderr);
    else
        fprintf(stderr, "\r\33[K%lu of %zu, %lu failed", done_, results_.size(), failed_);
    fflush(stderr);
}

void test_report::add(ULO number, test_result result)
{
    if (!result.differences.empty()) failed_++;
    results_[number] = std::move(result);
    known_[number] = true;
    done_++;
    if (on_terminal_) fputs("\r\33[K", stderr);
    for (; told_ < known_.size() && known_[told_]; told_++) tell(told_, results_[told_]);
    fflush(stdout);
    tell_progress();
}

void test_report::end() const
{
    if (how_ != telling::PLAIN) return;
    printf("%zu passed", results_.size() - failed_);
    printf(failed_ == 0 ? ".\n" : ", %lu failed.\n", failed_);
}

bool test_report::write_junit(const CHR *path) const
{
    FILE *file = is_standard_stream(path) ? stdout : fopen(path, "w");
    if (file == nullptr) return false;
    fprintf(file,
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<testsuite name=\"kst\" tests=\"%zu\" failures=\"%lu\">\n",
            results_.size(), failed_);
    for (const test_result &result : results_) write_case(file, result);
    fputs("</testsuite>\n", file);
    if (file == stdout) return true; // the command itself looks whether all was written
    const bool is_written = ferror(file) == 0;
    return fclose(file) == 0 && is_written;
}
