// Headers of images, read with every bound tested.

#include "bytecode/layout.h"

#include "vm/image.h"

bool read_layout(const code_words &code, ULO start, ULO end, image_layout *image)
{
    if (start > end || end - start <= image::UDF_TABLE) return false;
    const ULO room = end - start, header = code[start], distance = image::payload_of(header);
    *image = {.start = start,
              .slots = code[start + image::SLOTS],
              .arguments = code[start + image::ARGUMENTS],
              .udfs = code[start + image::UDFS],
              .main_node = start + distance};
    if (image::letter_of(header) != 'U' || distance >= room) return false;
    if (image->udfs >= room - image::UDF_TABLE) return false;
    image->table_end = start + image::UDF_TABLE + image->udfs;
    image->debug_end = image->main_node;
    if (image->udfs > 0 && !code.follow(start + image::UDF_TABLE, end, &image->debug_end))
        return false;
    return image->table_end <= image->debug_end && image->debug_end <= image->main_node;
}

std::string_view debug_text(const code_words &code, const image_layout &image)
{
    const std::string_view text =
        code.text(image.table_end, (image.debug_end - image.table_end) * sizeof(ULO));
    return text.substr(0, text.find('\0'));
}

ULO words_of_string(const code_words &code, ULO at, ULO end)
{
    if (at >= end) return 0;
    const ULO words = image::words_of_text(code[at]);
    return words < end - at ? words : 0;
}
