# Runs every example of the reference: RUNNER (the reference_examples
# program) extracts the scripts from DOCS into WORK, QVTHOST runs each on
# PLUGIN with `run PLUGIN -`, and RUNNER compares what they printed and their
# exit statuses with the pages, showing a difference as a diff. With
# QVT_UPDATE_REFERENCE set in the environment the runs are written into the
# pages instead. EMULATOR (words separated by "|") runs target programs.
string(REPLACE "|" ";" emulator "${EMULATOR}")
execute_process(COMMAND ${emulator} ${RUNNER} extract ${DOCS} ${WORK} RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "the reference's pages do not have the shape of the reference")
endif()
file(STRINGS ${WORK}/examples.txt examples)
foreach(example IN LISTS examples)
  string(REPLACE "|" ";" words "${example}")
  list(POP_FRONT words number)
  execute_process(COMMAND ${emulator} ${QVTHOST} ${words} run ${PLUGIN} -
    INPUT_FILE ${WORK}/${number}.qvt OUTPUT_FILE ${WORK}/${number}.out
    RESULT_VARIABLE status)
  file(WRITE ${WORK}/${number}.status "${status}\n")
endforeach()
set(update)
if(DEFINED ENV{QVT_UPDATE_REFERENCE} AND NOT "$ENV{QVT_UPDATE_REFERENCE}" STREQUAL "")
  set(update update)
endif()
execute_process(COMMAND ${emulator} ${RUNNER} compare ${DOCS} ${WORK} ${update}
  RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "examples of the reference print other than their pages show")
endif()
