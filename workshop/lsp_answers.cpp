#include "workshop/lsp_answers.h"

#include <algorithm>
#include <set>

#include "driver/precompiled.h"
#include "frontend/isa.h"
#include "frontend/token.h"
#include "frontend/words.h"
#include "kestrin/strings.h"
#include "strings/scratch.h"
#include "strings/tokens.h"
#include "workshop/completion.h"
#include "workshop/layout.h"
#include "workshop/line_reader.h"
#include "workshop/manual.h"

namespace {

// Numbers of the protocol.
enum completion_kind { FUNCTION_ITEM = 3, VARIABLE_ITEM = 6, KEYWORD_ITEM = 14 };
enum highlight_kind { TEXT_HIGHLIGHT = 1, READ_HIGHLIGHT = 2, WRITE_HIGHLIGHT = 3 };
constexpr int FUNCTION_SYMBOL = 12;
constexpr ULO MOST_COMMENT = 50;    // lines that are shown
constexpr ULO DEEPEST_SYMBOLS = 50; // functions in functions that are shown as such

// -- What is said of names ---------------------------------------------------------------------

std::string folded(std::string_view token)
{
    std::string text;
    append_folded(&text, token);
    return text;
}

// The letters of an instruction's operands, as the reference has them: "V U".
std::vector<std::string> operands_of(const instruction_word &word)
{
    const isa_row &row = isa_table[word.row];
    if (row.operands < 0) return {"..."};
    std::vector<std::string> letters;
    for (const CHR letter : view(row.op_type)) letters.emplace_back(1, letter);
    return letters;
}

std::string result_of(const instruction_word &word)
{
    return std::string(" -> ") + static_cast<CHR>(isa_table[word.row].ret_type);
}

// "V U -> U"
std::string shape_of(const instruction_word &word)
{
    std::string text;
    for (const std::string &operand : operands_of(word))
        text.append(text.empty() ? "" : " ").append(operand);
    return text + result_of(word);
}

std::vector<std::string> arguments_of(const function_text &f)
{
    constexpr ULO MOST = 100;
    std::vector<std::string> all;
    for (ULO i = 1; i <= std::min(f.arguments, MOST); i++) all.push_back("$" + std::to_string(i));
    return all;
}

std::string shape_of(const function_text &f)
{
    std::string text = "(" + std::string(f.name);
    for (const std::string &argument : arguments_of(f)) text.append(" ").append(argument);
    return text + ")";
}

// The entries of the reference.
std::string reference_of(std::string_view instruction)
{
    std::string text;
    for (const manual_entry *entry : find_in_manual(instruction))
        if (entry->kind == entry_kind::INSTRUCTION) text.append(right_trimmed(entry->text));
    return text;
}

std::string_view line_at(const document &doc, ULO byte)
{
    const ULO before = byte == 0 ? doc.text().npos : doc.text().find_last_of("\r\n", byte - 1);
    const ULO begin = before == doc.text().npos ? 0 : before + 1;
    return std::string_view(doc.text()).substr(begin, doc.line_end(byte) - begin);
}

// The comment on the lines above a byte's line.
std::string comment_above(const document &doc, ULO byte)
{
    std::string text;
    const ULO own = doc.place_at(byte).line;
    for (ULO line = own; line > 0 && own - line < MOST_COMMENT; line--) {
        std::string_view above = trimmed(line_at(doc, doc.byte_at({line - 1, 0})));
        if (!above.starts_with("#") || above.starts_with("#!")) break;
        above.remove_prefix(std::min(above.find_first_not_of('#'), above.size()));
        if (above.starts_with(" ")) above.remove_prefix(1);
        text.insert(0, std::string(above) + "\n");
    }
    return std::string(right_trimmed(text));
}

json markup(const surroundings &around, std::string_view code, std::string_view text,
            const char *language = "kestrin")
{
    const std::string gap = code.empty() || text.empty() ? "" : "\n\n";
    if (!around.shows_markdown)
        return {{"kind", "plaintext"}, {"value", std::string(code) + gap + std::string(text)}};
    const std::string fenced =
        code.empty() ? "" : std::string("```") + language + "\n" + std::string(code) + "\n```";
    return {{"kind", "markdown"}, {"value", fenced + gap + std::string(text)}};
}

// Where a function stands: in the document, or else in the profile.
struct definition {
    const document *doc = nullptr; // NULL: nowhere
    function_index function = NO_FUNCTION;

    const function_text &text() const { return doc->names().functions()[function]; }
};

definition definition_of(const question &q, const name_use &use)
{
    if (use.what != role::CALLED && use.what != role::DEFINED) return {};
    if (use.meant != NO_FUNCTION) return {q.doc, use.meant};
    if (q.around.profile == nullptr) return {};
    const text_names &known = q.around.profile->names();
    const function_index found = known.find(q.doc->names().text_of(use.name));
    return found == NO_FUNCTION ? definition{} : definition{q.around.profile, found};
}

json help_of_function(const question &q, const definition &of)
{
    const ULO from = of.text().from;
    return markup(q.around, trimmed(line_at(*of.doc, from)), comment_above(*of.doc, from));
}

std::string function_name(const question &q, function_index f)
{
    if (f == PROGRAM) return "the program";
    return "`" + folded(q.doc->names().functions()[f].name) + "'";
}

// -- Hover -------------------------------------------------------------------------------------

const name_use *first_use(const question &q, const name_use &of)
{
    const name_use *first = nullptr;
    for (const name_use &use : q.doc->names().uses())
        if (q.doc->names().are_one(use, of) &&
            (first == nullptr || (first->what == role::READ && use.what == role::ASSIGNED)))
            first = &use;
    return first;
}

std::string told_of_variable(const question &q, const name_use &use)
{
    const std::string of = function_name(q, use.inside);
    if (use.what == role::ARGUMENT) return "argument of " + of;
    const name_use *first = first_use(q, use);
    if (first->what != role::ASSIGNED) return "variable of " + of + ", which is not assigned";
    const ULO line = q.doc->place_at(first->from).line + 1;
    return "variable of " + of + ", assigned in line " + std::to_string(line);
}

answer hover(const question &q)
{
    const name_use *use = q.doc->names().use_at(q.byte());
    if (use == nullptr) return {};
    const std::string_view name = q.doc->names().text_of(use->name);
    const definition found = definition_of(q, *use);
    json contents;
    if (use->what == role::INSTRUCTION)
        contents = markup(q.around, reference_of(name), "", "text");
    else if (found.doc != nullptr)
        contents = help_of_function(q, found);
    else if (use->what != role::CALLED)
        contents = markup(q.around, "", told_of_variable(q, *use));
    if (contents.is_null()) return {};
    return {
        {{"contents", contents}, {"range", range_json(*q.doc, use->from, use->from + use->size)}}};
}

// -- Places of a name --------------------------------------------------------------------------

json location(std::string_view uri, const document &doc, ULO from, ULO size)
{
    return {{"uri", uri}, {"range", range_json(doc, from, from + size)}};
}

json location_of(const question &q, const definition &of)
{
    const std::string_view uri = of.doc == q.doc ? q.uri() : q.around.profile_uri;
    return location(uri, *of.doc, of.text().name_from, of.text().name.size());
}

answer go_to_definition(const question &q)
{
    const name_use *use = q.doc->names().use_at(q.byte());
    if (use == nullptr || use->what == role::INSTRUCTION) return {};
    const definition found = definition_of(q, *use);
    if (found.doc != nullptr) return {location_of(q, found)};
    if (use->what == role::CALLED) return {};
    const name_use *first = first_use(q, *use);
    return {location(q.uri(), *q.doc, first->from, first->size)};
}

answer find_references(const question &q)
{
    const name_use *wanted = q.doc->names().use_at(q.byte());
    if (wanted == nullptr) return {json::array()};
    const bool with_definition = is_true(member(q.params, {"context", "includeDeclaration"}));
    json list = json::array();
    for (const name_use &use : q.doc->names().uses())
        if (q.doc->names().are_one(use, *wanted) && (with_definition || use.what != role::DEFINED))
            list.push_back(location(q.uri(), *q.doc, use.from, use.size));
    const definition found = definition_of(q, *wanted);
    if (with_definition && found.doc != nullptr && found.doc != q.doc)
        list.push_back(location_of(q, found));
    return {list};
}

answer highlight(const question &q)
{
    const name_use *wanted = q.doc->names().use_at(q.byte());
    json list = json::array();
    if (wanted == nullptr) return {list};
    for (const name_use &use : q.doc->names().uses()) {
        if (!q.doc->names().are_one(use, *wanted)) continue;
        const int kind = use.what == role::ASSIGNED || use.what == role::DEFINED ? WRITE_HIGHLIGHT
                         : use.what == role::READ                                ? READ_HIGHLIGHT
                                                                                 : TEXT_HIGHLIGHT;
        list.push_back(
            {{"range", range_json(*q.doc, use.from, use.from + use.size)}, {"kind", kind}});
    }
    return {list};
}

// -- Rename ------------------------------------------------------------------------------------

bool is_terminal_value(std::string_view name)
{
#define TERM_NAME(id, ...)                                                                         \
    if (mnemonic(ISA_##id) == name) return true;
#define TERM_NUMBER TERM_NAME
#define TERM_STRING TERM_NAME
#include "terminal/terminal.def"
#undef TERM_NAME
#undef TERM_NUMBER
#undef TERM_STRING
    return false;
}

// Why a name can't be another one; empty if it can.
std::string fixed_by(const question &q, const name_use *use)
{
    if (use == nullptr) return "there is no name here";
    const std::string name = "`" + std::string(q.doc->names().text_of(use->name)) + "' ";
    if (!q.doc->names().is_balanced())
        return "quotes or parentheses are out of balance: it can't be told what is one";
    if (use->what == role::INSTRUCTION) return name + "is an instruction";
    if (use->what == role::ARGUMENT) return name + "is an argument, which has no other name";
    if (use->what == role::READ || use->what == role::ASSIGNED)
        return use->inside == PROGRAM && is_terminal_value(q.doc->names().text_of(use->name))
                   ? name + "is a value of the terminal"
                   : "";
    if (use->meant != NO_FUNCTION) return "";
    return name + (definition_of(q, *use).doc != nullptr ? "is a function of the profile"
                                                         : "is not defined");
}

// Whether two functions may be seen from one place.
bool meet(const text_names &names, function_index a, function_index b)
{
    const function_index around_a = names.functions()[a].around;
    const function_index around_b = names.functions()[b].around;
    return names.is_within(around_a, around_b) || names.is_within(around_b, around_a);
}

bool is_function_taken(const question &q, function_index renamed, const std::string &name)
{
    const text_names &names = q.doc->names();
    for (function_index i = 1; i < names.functions().size(); i++)
        if (i != renamed && names.text_of(names.functions()[i].folded) == name &&
            meet(names, i, renamed))
            return true;
    return q.around.profile != nullptr && q.around.profile->names().find(name) != NO_FUNCTION;
}

bool is_variable_taken(const question &q, const name_use &renamed, const std::string &name)
{
    if (renamed.inside == PROGRAM && is_terminal_value(name)) return true;
    for (const name_use &use : q.doc->names().uses())
        if ((use.what == role::READ || use.what == role::ASSIGNED) &&
            use.inside == renamed.inside && !q.doc->names().are_one(use, renamed) &&
            q.doc->names().text_of(use.name) == name)
            return true;
    return false;
}

// Why a name can't become this one; empty if it can.
std::string refused_name(const question &q, const name_use &use, std::string_view wanted)
{
    const bool is_variable = use.what == role::READ || use.what == role::ASSIGNED;
    const std::string shown = "`" + std::string(wanted) + "' ", name = folded(wanted);
    if (is_variable ? !is_variable_name(wanted) : !is_function_name(wanted))
        return shown + "is no name of a " + (is_variable ? "variable" : "function");
    if (!is_variable && find_word(name) != nullptr) return shown + "is an instruction";
    const bool is_taken =
        is_variable ? is_variable_taken(q, use, name) : is_function_taken(q, use.meant, name);
    return is_taken ? shown + "is taken already" : "";
}

answer prepare_rename(const question &q)
{
    const name_use *use = q.doc->names().use_at(q.byte());
    if (use == nullptr) return {};
    const std::string why = fixed_by(q, use);
    if (!why.empty()) return {nullptr, why};
    return {{{"range", range_json(*q.doc, use->from, use->from + use->size)},
             {"placeholder", q.doc->text().substr(use->from, use->size)}}};
}

json changes_of(const question &q, const json &edits)
{
    if (!q.around.takes_versions_of_edits) return {{"changes", {{std::string(q.uri()), edits}}}};
    const json one = {{"textDocument", {{"uri", q.uri()}, {"version", q.doc->version}}},
                      {"edits", edits}};
    return {{"documentChanges", json::array({one})}};
}

answer rename(const question &q)
{
    const name_use *wanted = q.doc->names().use_at(q.byte());
    std::string why = fixed_by(q, wanted);
    const std::string_view name = string_in(member(q.params, {"newName"}));
    if (why.empty()) why = refused_name(q, *wanted, name);
    if (!why.empty()) return {nullptr, why};
    json edits = json::array();
    for (const name_use &use : q.doc->names().uses())
        if (q.doc->names().are_one(use, *wanted))
            edits.push_back(
                {{"range", range_json(*q.doc, use.from, use.from + use.size)}, {"newText", name}});
    return {changes_of(q, edits)};
}

// -- Completion --------------------------------------------------------------------------------

class completer {
public:
    explicit completer(const question &q) : q_(q), names_(q.doc->names()), at_(q.byte())
    {
        const ULO line = q.doc->byte_at({q.place().line, 0});
        from_ = line + begin_of_word(q.doc->text().substr(line, at_ - line));
        typed_ = q.doc->text().substr(from_, at_ - from_);
    }
    json list();

private:
    void add(std::string_view name, int kind, const json &detail, const json &help = nullptr);
    void add_own(std::string_view name, int kind, const json &detail, const json &help = nullptr);
    void add_instructions();
    void add_functions(const document &doc, bool is_seen_everywhere);
    void add_variables();

    const question &q_;
    const text_names &names_;
    ULO at_, from_;
    std::string typed_;
    json list_ = json::array();
    std::set<std::string> seen_;
};

void completer::add(std::string_view name, int kind, const json &detail, const json &help)
{
    json item = {{"label", name},
                 {"kind", kind},
                 {"detail", detail},
                 {"textEdit", {{"range", range_json(*q_.doc, from_, at_)}, {"newText", name}}}};
    if (!help.is_null()) item["documentation"] = help;
    list_.push_back(std::move(item));
}

// A name of the author's goes on as it is spelled.
void completer::add_own(std::string_view name, int kind, const json &detail, const json &help)
{
    const std::string known = folded(name);
    if (known.starts_with(folded(typed_)) && seen_.insert(known).second)
        add(name, kind, detail, help);
}

void completer::add_instructions()
{
    for (const std::string &name : instruction_names()) {
        const std::string shown = completed(typed_, name);
        const instruction_word *word = find_word(name);
        if (!shown.empty() && word != nullptr) add(shown, KEYWORD_ITEM, shape_of(*word));
    }
}

void completer::add_functions(const document &doc, bool is_seen_everywhere)
{
    const function_index here = names_.function_at(from_);
    const auto &functions = doc.names().functions();
    for (function_index i = 1; i < functions.size(); i++) {
        const function_text &f = functions[i];
        const bool is_seen = is_seen_everywhere
                                 ? f.around == PROGRAM
                                 : f.from < from_ && names_.is_within(here, f.around);
        if (is_seen) add_own(f.name, FUNCTION_ITEM, shape_of(f), help_of_function(q_, {&doc, i}));
    }
}

void completer::add_variables()
{
    const function_index here = names_.function_at(from_);
    for (const name_use &use : names_.uses()) {
        const bool is_it =
            use.what == role::READ || use.what == role::ASSIGNED || use.what == role::ARGUMENT;
        if (is_it && use.inside == here && use.from != from_)
            add_own(std::string_view(q_.doc->text()).substr(use.from, use.size), VARIABLE_ITEM,
                    (use.what == role::ARGUMENT ? "argument of " : "variable of ") +
                        function_name(q_, here));
    }
}

// A form begins with what it does, and else has values in it.
json completer::list()
{
    if (names_.is_in_text(from_)) return list_;
    const std::string_view ahead = right_trimmed(std::string_view(q_.doc->text()).substr(0, from_));
    const bool begins_form = ahead.ends_with('(');
    if (begins_form || names_.form_at(from_) == 0) {
        add_instructions();
        add_functions(*q_.doc, false);
        if (q_.around.profile != nullptr) add_functions(*q_.around.profile, true);
    }
    if (!begins_form) add_variables();
    return list_;
}

answer complete(const question &q) { return {completer(q).list()}; }

answer resolve_completion(const question &q)
{
    json item = q.params;
    const std::string text = reference_of(string_in(member(item, {"label"})));
    if (!text.empty() && !item.contains("documentation"))
        item["documentation"] = markup(q.around, text, "", "text");
    return {item};
}

// -- Signatures --------------------------------------------------------------------------------

// Parameters as ranges of the label, in which each stands behind a blank.
json signature(const question &q, const std::string &label, const std::vector<std::string> &parts,
               ULO from)
{
    json parameters = json::array();
    for (const std::string &part : parts) {
        from = label.find(part, from);
        parameters.push_back({{"label", {from, from + part.size()}}});
        from += part.size();
    }
    json shown = {{"label", label}};
    if (q.around.shows_parts_of_labels) shown["parameters"] = parameters;
    return shown;
}

json signature_of(const question &q, const name_use &word)
{
    const std::string_view spelled = std::string_view(q.doc->text()).substr(word.from, word.size);
    const ULO behind = spelled.size() + 1;
    if (word.what == role::INSTRUCTION) {
        const instruction_word *known = find_word(q.doc->names().text_of(word.name));
        std::string label = "(" + std::string(spelled);
        for (const std::string &operand : operands_of(*known)) label.append(" ").append(operand);
        return signature(q, label + ")" + result_of(*known), operands_of(*known), behind);
    }
    const definition found = definition_of(q, word);
    if (found.doc == nullptr) return nullptr;
    return signature(q, shape_of(found.text()), arguments_of(found.text()), behind);
}

answer help_with_signature(const question &q)
{
    const ULO at = q.byte();
    const text_names &names = q.doc->names();
    const piece_index word = names.word_of_form(names.form_at(at));
    if (word == NO_PIECE || at <= names.to(names.pieces()[word])) return {};
    const name_use *use = names.use_at(names.from(names.pieces()[word]));
    const json shown = use == nullptr ? json() : signature_of(q, *use);
    if (shown.is_null()) return {};
    ULO active = 0;
    piece_index n = names.next_code(names.pieces()[word].next);
    for (; n != NO_PIECE && names.to(names.pieces()[n]) < at; active++)
        n = names.next_code(names.pieces()[n].next);
    return {{{"signatures", json::array({shown})},
             {"activeSignature", 0},
             {"activeParameter", active}}};
}

// -- The whole document ------------------------------------------------------------------------

json symbol_of(const question &q, const function_text &f)
{
    return {{"name", f.name},
            {"kind", FUNCTION_SYMBOL},
            {"detail", shape_of(f)},
            {"range", range_json(*q.doc, f.from, f.to)},
            {"selectionRange", range_json(*q.doc, f.name_from, f.name_from + f.name.size())}};
}

json flat_symbol_of(const question &q, const function_text &f)
{
    const function_text &around = q.doc->names().functions()[f.around];
    return {{"name", f.name},
            {"kind", FUNCTION_SYMBOL},
            {"containerName", around.name},
            {"location", location(q.uri(), *q.doc, f.from, f.to - f.from)}};
}

// Inner functions stand behind those around them: from the last one on, each goes into its own.
json nested_symbols(const question &q)
{
    const auto &functions = q.doc->names().functions();
    std::vector<ULO> depths(functions.size(), 0);
    std::vector<json> inside(functions.size(), json::array());
    for (ULO i = 1; i < functions.size(); i++) depths[i] = depths[functions[i].around] + 1;
    for (ULO i = functions.size(); i-- > 1;) {
        json symbol = symbol_of(q, functions[i]);
        std::reverse(inside[i].begin(), inside[i].end());
        if (!inside[i].empty()) symbol["children"] = std::move(inside[i]);
        inside[depths[i] > DEEPEST_SYMBOLS ? PROGRAM : functions[i].around].push_back(
            std::move(symbol));
    }
    std::reverse(inside[PROGRAM].begin(), inside[PROGRAM].end());
    return std::move(inside[PROGRAM]);
}

answer list_symbols(const question &q)
{
    if (q.around.shows_nested_symbols) return {nested_symbols(q)};
    const auto &functions = q.doc->names().functions();
    json list = json::array();
    for (ULO i = 1; i < functions.size(); i++) list.push_back(flat_symbol_of(q, functions[i]));
    return {list};
}

answer list_folds(const question &q)
{
    json list = json::array();
    for (const piece &p : q.doc->names().pieces()) {
        if (p.kind == piece_kind::NOTE || p.last_line <= p.begin.line || p.begin.line == 0)
            continue;
        const ULO from = q.doc->names().from(p), to = q.doc->names().to(p);
        json fold = {{"startLine", q.doc->place_at(from).line},
                     {"endLine", q.doc->place_at(to).line}};
        if (p.kind == piece_kind::REMARK) fold["kind"] = "comment";
        list.push_back(std::move(fold));
    }
    return {list};
}

// One edit of the lines from the first to the last that differ.
answer lay_out(const question &q)
{
    const std::string &text = q.doc->text();
    if (!q.doc->names().is_balanced() || is_precompiled(text) || is_too_deep(text))
        return {json::array()};
    const std::string wanted = laid_out(text);
    if (wanted == text) return {json::array()};
    const ULO most = std::min(text.size(), wanted.size());
    ULO ahead = 0, behind = 0;
    while (ahead < most && text[ahead] == wanted[ahead]) ahead++;
    ahead = ahead == 0 ? 0 : text.rfind('\n', ahead - 1) + 1;
    const auto is_same = [&] {
        return text[text.size() - behind - 1] == wanted[wanted.size() - behind - 1];
    };
    while (behind < most - ahead && is_same()) behind++;
    behind = text.size() - std::min(text.find('\n', text.size() - behind), text.size() - 1) - 1;
    return {json::array({{{"range", range_json(*q.doc, ahead, text.size() - behind)},
                          {"newText", wanted.substr(ahead, wanted.size() - behind - ahead)}}})};
}

constexpr lsp_method methods[] = {
    {"textDocument/hover", hover},
    {"textDocument/completion", complete},
    {"completionItem/resolve", resolve_completion, false},
    {"textDocument/signatureHelp", help_with_signature},
    {"textDocument/definition", go_to_definition},
    {"textDocument/references", find_references},
    {"textDocument/documentHighlight", highlight},
    {"textDocument/documentSymbol", list_symbols},
    {"textDocument/prepareRename", prepare_rename},
    {"textDocument/rename", rename},
    {"textDocument/formatting", lay_out},
    {"textDocument/foldingRange", list_folds},
};

} // namespace

text_place place_in(const json &value)
{
    return {number_in(member(value, {"line"})), number_in(member(value, {"character"}))};
}

text_place question::place() const { return place_in(member(params, {"position"})); }

std::span<const lsp_method> lsp_methods() { return methods; }

json lsp_capabilities()
{
    return {{"hoverProvider", true},
            {"completionProvider", {{"triggerCharacters", {"(", "$"}}, {"resolveProvider", true}}},
            {"signatureHelpProvider", {{"triggerCharacters", json::array({" "})}}},
            {"definitionProvider", true},
            {"referencesProvider", true},
            {"documentHighlightProvider", true},
            {"documentSymbolProvider", true},
            {"renameProvider", {{"prepareProvider", true}}},
            {"documentFormattingProvider", true},
            {"foldingRangeProvider", true}};
}
