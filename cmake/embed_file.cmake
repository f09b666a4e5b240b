# cmake -DINPUT=file -DOUTPUT=header -DNAME=identifier -P embed_file.cmake
# Writes a C++ header that holds INPUT's bytes as `constexpr char NAME[]`,
# without a terminating NUL, so that sizeof(NAME) is the file's size.
file(READ ${INPUT} hex HEX)
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${hex}")
file(WRITE ${OUTPUT}.new
  "// Made by embed_file.cmake from ${INPUT}; not edited.\n#pragma once\n"
  "constexpr char ${NAME}[] = {${bytes}};\n")
file(RENAME ${OUTPUT}.new ${OUTPUT})
