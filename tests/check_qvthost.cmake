# Runs qvthost with ARGS (words separated by "|") through EMULATOR (the same),
# standard input from INPUT when given, and checks its exit status against
# STATUS and its standard output, lines ending in "\n", against the regular
# expression OUTPUT.
string(REPLACE "|" ";" words "${ARGS}")
string(REPLACE "|" ";" emulator "${EMULATOR}")
set(input)
if(INPUT)
  set(input INPUT_FILE ${INPUT})
endif()
execute_process(COMMAND ${emulator} ${QVTHOST} ${words} ${input}
  RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
string(REPLACE "\r\n" "\n" out "${out}")
if(NOT status STREQUAL STATUS)
  message(FATAL_ERROR "exit status ${status}, expected ${STATUS}\n${out}${err}")
endif()
if(NOT out MATCHES "${OUTPUT}")
  message(FATAL_ERROR "output does not match '${OUTPUT}':\n${out}${err}")
endif()
