# Usage: cmake -DLIBRARY=... -DMAP_FILE=... -DNM=... "-DIMPORTS=a;b" [-DCHECK_IMPORTS=1]
#        [-DFORBIDDEN=regex] -P check_exports.cmake
# Fails unless the library's defined dynamic symbols equal the export list's
# global entries and, with CHECK_IMPORTS, it imports only IMPORTS (the two
# sinks, the property store and the vendor mutex, each of them), versioned C
# library symbols that FORBIDDEN does not match, and weak hooks. Sanitized
# builds import the C library through their runtimes, unversioned, so they
# are not checked for imports.
cmake_minimum_required(VERSION 3.25)

file(READ "${MAP_FILE}" map)
string(REGEX REPLACE "/\\*([^*]|\\*+[^*/])*\\*+/" "" map "${map}")
string(REGEX MATCH "global:(.*)local:" section "${map}")
string(REGEX MATCHALL "[A-Za-z_][A-Za-z0-9_]*" expected "${CMAKE_MATCH_1}")

execute_process(COMMAND "${NM}" -D --format=posix "${LIBRARY}" OUTPUT_VARIABLE symbols
  RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "nm failed on ${LIBRARY}")
endif()
string(REGEX MATCHALL "[^\n]+" lines "${symbols}")
set(defined "")
set(unexpected "")
set(imported "")
foreach(line IN LISTS lines)
  string(REGEX MATCH "^([^ @]+)(@[^ ]*)? ([A-Za-z])" ignored "${line}")
  set(name "${CMAKE_MATCH_1}")
  set(version "${CMAKE_MATCH_2}")
  set(kind "${CMAKE_MATCH_3}")
  if(NOT kind MATCHES "^[Uvw]$")
    list(APPEND defined "${name}")
  elseif(name IN_LIST IMPORTS)
    list(APPEND imported "${name}")
  elseif(NOT version AND NOT kind STREQUAL "w" OR FORBIDDEN AND name MATCHES "${FORBIDDEN}")
    list(APPEND unexpected "${name}")
  endif()
endforeach()

set(missing ${expected})
list(REMOVE_ITEM missing ${defined})
set(extra ${defined})
list(REMOVE_ITEM extra ${expected})
set(absent ${IMPORTS})
list(REMOVE_ITEM absent ${imported})
if(missing OR extra)
  message(FATAL_ERROR "export mismatch\n  missing: ${missing}\n  extra: ${extra}")
endif()
if(CHECK_IMPORTS AND (unexpected OR absent))
  message(FATAL_ERROR "imports outside the platform: [${unexpected}]; not imported: [${absent}]")
endif()
list(LENGTH expected count)
message(STATUS "${count} exported symbols match the export list")
