# Writes a C++ source that holds the bytes of a file as NAME, and how many as NAME_size; HEADER
# declares both: cmake -DFROM=file -DTO=source -DNAME=name -DHEADER=header -P embed.cmake
file(READ ${FROM} bytes HEX)
string(LENGTH "${bytes}" digits)
math(EXPR size "${digits} / 2")
string(REGEX REPLACE "(................................)" "\\1\n    " bytes "${bytes}")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
file(WRITE ${TO} "#include \"${HEADER}\"\n
const unsigned char ${NAME}[] = {\n    ${bytes}};
const std::size_t ${NAME}_size = ${size};\n")
