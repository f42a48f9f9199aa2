# Runs qvthost with ARGS (words separated by "|"), standard input from INPUT
# when given, and checks its exit status against STATUS and its standard
# output against the regular expression OUTPUT.
string(REPLACE "|" ";" words "${ARGS}")
if(INPUT)
  execute_process(COMMAND ${QVTHOST} ${words} INPUT_FILE ${INPUT}
    RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
else()
  execute_process(COMMAND ${QVTHOST} ${words}
    RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
endif()
if(NOT status STREQUAL STATUS)
  message(FATAL_ERROR "exit status ${status}, expected ${STATUS}\n${out}${err}")
endif()
if(NOT out MATCHES "${OUTPUT}")
  message(FATAL_ERROR "output does not match '${OUTPUT}':\n${out}${err}")
endif()
