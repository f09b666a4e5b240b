# Usage: cmake -DLIBRARY=... -DHEADERS=... -DBASELINE=... -DABIDW=... -DABIDIFF=...
#        [-DUPDATE=1] -P check_abi.cmake
# Fails when the library's ABI (exported symbols and the layouts of the types
# they reach) differs in any way from the committed baseline. With UPDATE
# the baseline is rewritten instead, for an intentional change.
cmake_minimum_required(VERSION 3.25)

get_filename_component(current "${LIBRARY}" NAME)
set(current "${CMAKE_CURRENT_BINARY_DIR}/${current}.current.abi")
execute_process(
  COMMAND "${ABIDW}" --no-corpus-path --headers-dir "${HEADERS}" --out-file "${current}" "${LIBRARY}"
  RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "abidw failed on ${LIBRARY}")
endif()

if(UPDATE)
  file(COPY_FILE "${current}" "${BASELINE}")
  message(STATUS "baseline written: ${BASELINE}")
  return()
endif()

execute_process(COMMAND "${ABIDIFF}" "${BASELINE}" "${current}"
  OUTPUT_VARIABLE report ERROR_VARIABLE report RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "ABI differs from ${BASELINE} (abidiff status ${rc}):\n${report}\n"
    "If the change is intended, rebuild the target update_abi_baseline and commit the "
    "new baseline with the reason.")
endif()
message(STATUS "ABI matches ${BASELINE}")
