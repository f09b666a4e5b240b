# Usage: cmake -DLIBRARY=... -DMAP_FILE=... -DNM=... "-DIMPORTS=a;b" -P check_exports.cmake
# Fails unless the library's defined dynamic symbols equal the export list's
# global entries and its imports are the platform's: IMPORTS, the C library.
cmake_minimum_required(VERSION 3.25)

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
list(LENGTH expected count)
message(STATUS "${count} exported symbols match the export list")

# Every import is either one of IMPORTS (the property store and the vendor
# mutex), a versioned C library symbol or a weak hook. Sanitized builds
# import the C library through their runtimes, unversioned: not checked.
if(NOT CHECK_IMPORTS)
  return()
endif()
execute_process(COMMAND "${NM}" -D --undefined-only --format=posix "${LIBRARY}"
  OUTPUT_VARIABLE undefined_out)
string(REGEX MATCHALL "[^\n]+" undefined_lines "${undefined_out}")
set(unexpected "")
set(found "")
foreach(line IN LISTS undefined_lines)
  string(REGEX MATCH "^([^ @]+)(@[^ ]*)? ([A-Za-z])" ignored "${line}")
  set(name "${CMAKE_MATCH_1}")
  set(version "${CMAKE_MATCH_2}")
  set(kind "${CMAKE_MATCH_3}")
  if(name IN_LIST IMPORTS)
    list(APPEND found "${name}")
  elseif(NOT version AND NOT kind STREQUAL "w")
    list(APPEND unexpected "${name}")
  endif()
endforeach()
if(unexpected)
  list(JOIN unexpected ", " unexpected)
  message(FATAL_ERROR "imports outside the platform: [${unexpected}]")
endif()
foreach(import IN LISTS IMPORTS)
  if(NOT import IN_LIST found)
    message(FATAL_ERROR "${import} is not imported from the platform")
  endif()
endforeach()

