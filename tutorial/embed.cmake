# Writes a C++ source that holds the bytes of a file: cmake -DFROM=file -DTO=source -P embed.cmake
file(READ ${FROM} bytes HEX)
string(LENGTH "${bytes}" digits)
math(EXPR size "${digits} / 2")
string(REGEX REPLACE "(................................)" "\\1\n    " bytes "${bytes}")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
file(WRITE ${TO} "#include \"driver/tutorial.h\"\n
const unsigned char tutorial_archive[] = {\n    ${bytes}};
const std::size_t tutorial_archive_size = ${size};\n")
