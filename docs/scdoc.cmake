# cmake -DSCDOC=scdoc -DINPUT=page.scd -DOUTPUT=page.1 -P scdoc.cmake
# Runs scdoc on INPUT and writes OUTPUT whole or not at all. scdoc turns
# hyphenation off before .TH, which turns it on again, so it is turned off
# once more after .TH: names such as kovani_is_user_version are never split.
foreach(var IN ITEMS SCDOC INPUT OUTPUT)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "scdoc.cmake: ${var} is not set")
  endif()
endforeach()
execute_process(COMMAND "${SCDOC}"
  INPUT_FILE "${INPUT}"
  OUTPUT_VARIABLE roff
  ERROR_VARIABLE error
  RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "scdoc failed on ${INPUT}: ${error}")
endif()
string(REGEX REPLACE "(\n\\.TH [^\n]*\n)" "\\1.nh\n" roff "${roff}")
if(NOT roff MATCHES "\n\\.TH [^\n]*\n\\.nh\n")
  message(FATAL_ERROR "scdoc.cmake: no .TH line in what scdoc wrote for ${INPUT}")
endif()
file(WRITE "${OUTPUT}.tmp" "${roff}")
file(RENAME "${OUTPUT}.tmp" "${OUTPUT}")
