# Writes OUTPUT, a C++ source that defines NAME (and NAMESize) holding the bytes of INPUT and a
# terminating zero.
file(READ "${INPUT}" hex HEX)
string(LENGTH "${hex}" digits)
math(EXPR size "${digits} / 2")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
file(WRITE "${OUTPUT}"
  "#include <cstddef>\n"
  "extern const char ${NAME}[];\nextern const size_t ${NAME}Size;\n"
  "const char ${NAME}[] = {${bytes}0};\nconst size_t ${NAME}Size = ${size};\n")
