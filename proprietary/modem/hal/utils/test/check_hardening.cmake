# Usage: cmake -DLIBRARY=... -DREADELF=... -DEXPECT_FORTIFY=0|1 -P check_hardening.cmake
# Fails when the built library lacks any of the hardening the device build
# has: full RELRO with BIND_NOW, a non-executable stack, position-independent
# code without text relocations, the stack protector, and (in optimised
# builds) the fortified C library calls. --no-undefined is enforced by the
# link itself.
cmake_minimum_required(VERSION 3.25)

function(readelf_output option out)
  execute_process(COMMAND "${READELF}" ${option} "${LIBRARY}"
    OUTPUT_VARIABLE text RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${READELF} ${option} failed on ${LIBRARY}")
  endif()
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

readelf_output(-lW segments)
readelf_output(-dW dynamic)
readelf_output("--dyn-syms;-W" dynsyms)
readelf_output(-hW header)

set(missing "")
if(NOT segments MATCHES "GNU_RELRO")
  list(APPEND missing "RELRO segment")
endif()
if(NOT dynamic MATCHES "\\(FLAGS\\)[^\n]*BIND_NOW" AND NOT dynamic MATCHES "\\(FLAGS_1\\)[^\n]*NOW")
  list(APPEND missing "BIND_NOW")
endif()
if(NOT segments MATCHES "GNU_STACK[^\n]* RW  ")
  list(APPEND missing "non-executable stack")
endif()
if(dynamic MATCHES "TEXTREL" OR NOT header MATCHES "DYN \\(Shared object file\\)")
  list(APPEND missing "position-independent code")
endif()
if(NOT dynsyms MATCHES "__stack_chk_fail")
  list(APPEND missing "stack protector")
endif()
if(EXPECT_FORTIFY AND NOT dynsyms MATCHES "__[a-z]+_chk")
  list(APPEND missing "_FORTIFY_SOURCE")
endif()
if(missing)
  message(FATAL_ERROR "${LIBRARY} lacks: ${missing}")
endif()
message(STATUS "hardening present in ${LIBRARY}")
