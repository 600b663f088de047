// The classifier of tokens. A number has exactly one legal spelling; a message tells it.

#include "frontend/token.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "frontend/isa.h"
#include "frontend/syntax.h"
#include "kestrin/strings.h"
#include "strings/scratch.h"
#include "strings/tokens.h"

namespace {

constexpr std::string_view DIGITS = "0123456789";

CHR upper_byte(CHR c) { return c >= 'a' && c <= 'z' ? static_cast<CHR>(c - 32) : c; }

bool starts_name(CHR first)
{
    const UCH c = static_cast<UCH>(first);
    return (c >= 'A' && c <= 'Z') || (names_are_utf8 && c >= 128 && c <= 253);
}

UCH refuse(SLO) { return 0; }

UCH keep(std::string *out, std::string_view token, UCH letter)
{
    out->append(token);
    return letter;
}

UCH string_token(std::string_view token, std::string *out)
{
    if (token.back() != '"') return refuse(syntax_error<syntax::STRING_UNTERMINATED>(token));
    return keep(out, token, 'S');
}

UCH argument_token(std::string_view token, std::string *out)
{
    const std::string number(token.substr(1));
    const SLO value = consists_of(number, DIGITS) ? atol(number.c_str()) : 0;
    if (value <= 0) return refuse(syntax_error<syntax::ARGUMENT_COUNT>(token));
    const std::string print = std::to_string(value);
    if (print != number) return refuse(syntax_error<syntax::ARGUMENT_SPELLING>(token, print));
    return keep(out, token, 'P');
}

bool legal_in_name(CHR c)
{
    const UCH byte = static_cast<UCH>(c);
    if (c == '"' || c == '(' || c == ')' || c == ':' || c == '@') return false;
    return byte > 32 && byte <= (names_are_utf8 ? 253 : 126);
}

UCH name_token(std::string_view token, std::string_view folded, std::string *out)
{
    if (!std::all_of(folded.begin() + 1, folded.end(), legal_in_name))
        return refuse(syntax_error<syntax::VARIABLE_NAME>(token));
    return keep(out, folded, 'V');
}

UCH integer_token(std::string_view token, const std::string &folded, std::string *out)
{
    const std::string print = std::to_string(atol(folded.c_str()));
    if (print != token) return refuse(syntax_error<syntax::INTEGER_SPELLING>(token, print));
    return keep(out, token, 'I');
}

// The exponent of the canonical spelling, letter included; empty if there is none or it is 0. Cuts
// it off the mantissa.
std::string take_exponent(std::string_view token, std::string *mantissa)
{
    const auto place = mantissa->rfind('E');
    if (place == std::string::npos) return {};
    const std::string value = std::to_string(atol(mantissa->c_str() + place + 1));
    mantissa->resize(place);
    return value.front() == '0' ? std::string() : token[place] + value;
}

// The point and the fraction without superfluous zeros; empty if nothing remains. Cuts them off.
std::string take_fraction(std::string *mantissa)
{
    const auto place = mantissa->find('.');
    if (place == std::string::npos) return {};
    std::string fraction = mantissa->substr(place + 1);
    for (CHR &c : fraction)
        if (DIGITS.find(c) == DIGITS.npos) c = '0';
    fraction.resize(fraction.find_last_not_of('0') + 1);
    mantissa->resize(place);
    return fraction.empty() ? fraction : "." + fraction;
}

// What has no value as a float is spelled as the zero.
std::string settle_value(const std::string &spelling)
{
    const UCH letter = kestrin_type1(spelling);
    if (letter == 'I') return spelling + ".";
    if (letter != 'F') return "0.";
    const DFL value = atof(spelling.c_str());
    CHR print[32];
    snprintf(print, sizeof print, "%.16E", value);
    return value == 0 || kestrin_type1(print) != 'F' ? "0." : spelling;
}

std::string float_spelling(std::string_view token, const std::string &folded)
{
    std::string mantissa = folded;
    const std::string exponent = take_exponent(token, &mantissa);
    const std::string fraction = take_fraction(&mantissa);
    std::string spelling = std::to_string(atol(mantissa.c_str())) + fraction + exponent;
    if (!mantissa.empty() && mantissa.front() == '-' && spelling.front() != '-')
        spelling.insert(0, "-");
    return settle_value(spelling);
}

UCH float_token(std::string_view token, const std::string &folded, std::string *out)
{
    const std::string spelling = float_spelling(token, folded);
    if (spelling != token) return refuse(syntax_error<syntax::FLOAT_SPELLING>(token, spelling));
    for (CHR c : token) out->push_back(upper_byte(c));
    return 'F';
}

UCH number_token(std::string_view token, const std::string &folded, std::string *out)
{
    if (consists_of(folded, "0123456789+-")) return integer_token(token, folded, out);
    if (!consists_of(folded, "+-.0123456789E"))
        return refuse(syntax_error<syntax::NUMERIC_CONSTANT>(token));
    return float_token(token, folded, out);
}

// What nearly all integers look like needs no second look.
bool is_plain_integer(std::string_view token)
{
    const auto is_digit = [](CHR c) { return c >= '0' && c <= '9'; };
    return token.size() < 18 && std::all_of(token.begin(), token.end(), is_digit) &&
           (token.front() != '0' || token.size() == 1);
}

} // namespace

bool kestrin_head(std::string_view *token, std::string_view text)
{
    const std::string_view rest = left_trimmed(text);
    const token_end end = end_of_token(rest, 0);
    if (!end.sound) {
        syntax_error<syntax::UNBALANCED>(text);
        return false;
    }
    *token = rest.substr(0, end.position);
    return true;
}

UCH kestrin_type(std::string_view token, std::string *out)
{
    if (token.empty()) return integer_token(token, std::string(), out);
    if (token.front() == '"') return string_token(token, out);
    if (token.front() == '$') return argument_token(token, out);
    if (is_plain_integer(token)) return keep(out, token, 'I');
    std::string folded;
    append_folded(&folded, token);
    if (std::string_view(folded) == "NIL") return keep(out, folded, 'Z');
    if (starts_name(folded.front())) return name_token(token, folded, out);
    return number_token(token, folded, out);
}

SLO leading_number(std::string_view token)
{
    if (token.empty() || !is_plain_integer(token)) return atol(std::string(token).c_str());
    SLO value = 0;
    for (CHR c : token) value = value * 10 + (c - '0');
    return value;
}

UCH kestrin_type1(std::string_view token)
{
    if (token.empty()) return 'I';
    if (token.front() == '"') return 'S';
    if (token.front() == '$') return 'P';
    if (token.front() == '(') return 'U';
    if (token == "NIL") return 'Z';
    if (starts_name(token.front())) return 'V';
    return token.find_first_of(".Ee") == token.npos ? 'I' : 'F';
}

void append_folded(std::string *out, std::string_view text)
{
    if (names_are_utf8) {
        scratch folded;
        assign(&folded.s, text);
        out->append(view(upper_utf8(&folded.s, folded.s)));
        return;
    }
    const auto from = out->size();
    out->append(text);
    for (auto i = from; i < out->size(); i++) (*out)[i] = upper_byte((*out)[i]);
}

CHR suffix_of(std::string_view token)
{
    return token.size() > 2 && token[token.size() - 2] == '@' ? token.back() : 0;
}

std::string_view without_suffix(std::string_view token)
{
    return suffix_of(token) == 0 ? token : token.substr(0, token.size() - 2);
}
