// Reading and writing of precompiled programs. What was written elsewhere is tested before the
// linker sees it: the checksum binds the file to the tables, the verifier proves the code sound.

#include "driver/precompiled.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>

#include "bytecode/compile.h"
#include "bytecode/decompile.h"
#include "bytecode/verify.h"
#include "driver/listing.h"
#include "driver/whole_file.h"
#include "frontend/forms.h"
#include "frontend/isa.h"
#include "frontend/justify.h"
#include "frontend/squeeze.h"
#include "kestrin/strings.h"
#include "strings/scratch.h"
#include "vm/engine.h"
#include "vm/image.h"

namespace {

constexpr CHR ARCHITECTURE = 4; // bit 0 clear, 4 under mask 30
constexpr ULO HEADER_SIZE = 16, SMALLEST_FILE = 32;

bool is_our_architecture(CHR byte) { return (byte & 1) == 0 && (byte & 30) == ARCHITECTURE; }

// What the checksum binds a file to.
ULO checksum(std::string_view bytecode)
{
    scratch tables, extension, code;
    _internal_ISA_COPs_get_(&tables.s, 0);
    _internal_ISAext_COPs_get_(&extension.s, 0);
    assign(&code.s, bytecode);
    return crcsum(cat(&tables.s, extension.s)) + crcsum(code.s);
}

ULO word_at(std::string_view bytes, ULO offset)
{
    ULO word = 0;
    memcpy(&word, bytes.data() + offset, sizeof word);
    return word;
}

// The source text of compiled code, squeezed, and what there was to say of it.
struct decompilation {
    scratch text, messages;

    // False if the code made no sense.
    bool make(const CHR *code, decompile_mode mode, code_origin origin)
    {
        const bool done = kestrin_decompile(view(code), mode, origin, &text.s, &messages.s);
        progn_squeeze(&text.s);
        return done;
    }
    void list(const session *s) const
    {
        print_warnings(view(messages.s));
        kestrin_print(view(text.s), style_of(*s));
    }
};

// -- Reading -----------------------------------------------------------------------------------

bool checksum_fits(const session *s, std::string_view contents)
{
    if (checksum(contents.substr(HEADER_SIZE)) == word_at(contents, 8)) return true;
    if (s->mode != DISK_SHOW_DEBUG_INFO) die(message::FILE_FOREIGN);
    say(message::FILE_FOREIGN_WARNING);
    say(message::FILE_FOREIGN_NOTE);
    return false;
}

void list_precompiled(const session *s, bool is_sound)
{
    const auto list = [&](decompile_mode mode) {
        const code_origin origin = is_sound ? code_origin::VERIFIED : code_origin::FOREIGN;
        is_sound = list_decompiled(s, s->prog_text, mode, origin) && is_sound;
    };
    say(message::DECOMPILING);
    list(ENTIRE);
    list_if(s->is_on(SWITCH_DECOMPILED), s, message::DECOMPILED_DISABLED, [&] {
        say(message::DECOMPILING_EFFECTIVE);
        list(EFFECTIVE);
    });
    if (!is_sound) die(message::FILE_FOREIGN);
}

// -- Writing -----------------------------------------------------------------------------------

// Typed and compiled together, global functions and program, from their untyped text.
void compile_whole(const session *s, tree *whole, CHR **code)
{
    say(message::DISK_RESOLVING);
    kestrin_justify(whole, {}, nullptr);
    say(message::DISK_COMPILING);
    kestrin_compile(whole, s->switches[SWITCH_DEBUGINFO], nullptr, code);
}

// Drops every function that nothing calls: the code is compiled a second time from its
// decompilation.
void minimise(const session *s, CHR **code)
{
    say(message::DISK_DECOMPILING);
    decompilation found;
    const bool done = found.make(*code, MINIMISED, code_origin::OWN);
    list_if(s->is_on(SWITCH_DECOMPILED), s, message::DISK_DECOMPILED_DISABLED,
            [&] { found.list(s); });
    if (!done) die(message::FILE_NOT_TRANSLATED);
    tree whole;
    whole.read(view(found.text.s), CHECKED);
    compile_whole(s, &whole, code);
}

std::string file_name(std::string name)
{
    const bool is_source =
        name.size() >= 4 && strcasecmp(name.c_str() + name.size() - 4, ".KST") == 0;
    if (is_source)
        name.back() = 'x';
    else
        name.append(".x");
    return name;
}

std::string with_header(std::string_view bytecode)
{
    std::string file;
    for (int i = 0; i < 4; i++) file.append({'U', ARCHITECTURE});
    const ULO sum = checksum(bytecode);
    file.append(reinterpret_cast<const CHR *>(&sum), sizeof sum);
    return file.append(bytecode);
}

} // namespace

bool list_decompiled(const session *s, const CHR *code, decompile_mode mode, code_origin origin)
{
    decompilation found;
    const bool done = found.make(code, mode, origin);
    found.list(s);
    return done;
}

bool is_precompiled(std::string_view contents)
{
    return contents.size() > SMALLEST_FILE && contents[0] == 'U' && contents[2] == contents[0] &&
           contents[3] == contents[1];
}

void load_precompiled(session *s, std::string_view contents)
{
    if (s->is_storing()) die(message::OPTION_NOT_APPLICABLE, s->argv[1]);
    if (!is_our_architecture(contents[1])) die(message::FILE_OTHER_MACHINE);
    bool is_sound = checksum_fits(s, contents);
    assign(&s->prog_text, contents.substr(HEADER_SIZE));
    if (image::letter_of(word_at(contents, HEADER_SIZE)) != 'U') die(message::FILE_CORRUPTED);
    if (!verify_bytecode(view(s->prog_text))) {
        if (s->mode != DISK_SHOW_DEBUG_INFO) die(message::FILE_CORRUPTED);
        is_sound = false;
    }
    if (s->words_behind_file() > 0) die(message::NO_ARGUMENTS_ALLOWED);
    if (s->mode == DISK_SHOW_DEBUG_INFO) list_precompiled(s, is_sound);
}

void write_precompiled(const session *s)
{
    say(message::DISK_CREATING);
    say(message::DISK_PREPARING, isa_mnemonics[ISA_PROGN]);
    tree whole;
    whole.read(wrapped(s->stored_set + " " + s->stored_program), CHECKED);
    say(message::DISK_SQUEEZING, isa_mnemonics[ISA_PROGN]);
    progn_squeeze(&whole);
    scratch code;
    compile_whole(s, &whole, &code.s);
    if (s->mode == DISK_COMPILE_MINIMISED) minimise(s, &code.s);
    write_whole(file_name(s->file()), with_header(view(code.s)));
}
