# Usage: cmake -DLIBRARY=... -DMAP_FILE=... -DNM=... "-DIMPORTS=a;b" -P check_exports.cmake
# Fails unless the library's defined dynamic symbols equal the export list's
# global entries, and each of IMPORTS is an undefined (platform) symbol.

file(READ "${MAP_FILE}" map)
string(REGEX REPLACE "/\\*([^*]|\\*+[^*/])*\\*+/" "" map "${map}")
string(REGEX MATCH "global:(.*)local:" section "${map}")
string(REGEX MATCHALL "[A-Za-z_][A-Za-z0-9_]*" expected "${CMAKE_MATCH_1}")
list(SORT expected)

execute_process(COMMAND "${NM}" -D --defined-only --format=posix "${LIBRARY}"
  OUTPUT_VARIABLE defined_out RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "nm failed on ${LIBRARY}")
endif()
string(REGEX MATCHALL "[^\n]+" defined_lines "${defined_out}")
set(defined "")
foreach(line IN LISTS defined_lines)
  string(REGEX MATCH "^[^ @]+" name "${line}")
  list(APPEND defined "${name}")
endforeach()
list(SORT defined)

set(missing ${expected})
list(REMOVE_ITEM missing ${defined})
set(extra ${defined})
list(REMOVE_ITEM extra ${expected})
if(missing OR extra)
  message(FATAL_ERROR "export mismatch\n  missing: ${missing}\n  extra: ${extra}")
endif()

execute_process(COMMAND "${NM}" -D --undefined-only --format=posix "${LIBRARY}"
  OUTPUT_VARIABLE undefined_out)
foreach(import IN LISTS IMPORTS)
  if(NOT undefined_out MATCHES "(^|\n)${import}[ @]")
    message(FATAL_ERROR "${import} is not imported from the platform")
  endif()
endforeach()
list(LENGTH expected count)
message(STATUS "${count} exported symbols match the export list")
