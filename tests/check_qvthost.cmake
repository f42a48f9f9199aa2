cmake_minimum_required(VERSION 3.25)
# Runs qvthost with ARGS (words separated by "|") through EMULATOR (the same),
# standard input from INPUT when given, and checks its exit status against
# STATUS and its output against the regular expression OUTPUT: standard
# output, lines ending in "\n", then a line "-- stderr --", then standard
# error. Every run must end with a documented status (0 to 3), never a
# signal, and with --json print valid JSON.
string(REPLACE "|" ";" words "${ARGS}")
string(REPLACE "|" ";" emulator "${EMULATOR}")
set(input)
if(INPUT)
  set(input INPUT_FILE ${INPUT})
endif()
execute_process(COMMAND ${emulator} ${QVTHOST} ${words} ${input}
  RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
string(REPLACE "\r\n" "\n" out "${out}")
string(REPLACE "\r\n" "\n" err "${err}")
set(both "${out}-- stderr --\n${err}")
if(NOT status MATCHES "^[0-3]$")
  message(FATAL_ERROR "exit status '${status}', not one of 0 to 3\n${both}")
endif()
if(NOT status STREQUAL STATUS)
  message(FATAL_ERROR "exit status ${status}, expected ${STATUS}\n${both}")
endif()
if(NOT both MATCHES "${OUTPUT}")
  message(FATAL_ERROR "output does not match '${OUTPUT}':\n${both}")
endif()
if("--json" IN_LIST words)
  string(JSON type ERROR_VARIABLE invalid TYPE "${out}")
  if(invalid)
    message(FATAL_ERROR "not valid JSON (${invalid}):\n${out}")
  endif()
endif()
