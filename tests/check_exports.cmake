# Fails unless the plug-in's dynamic symbol table defines exactly one function.
execute_process(COMMAND ${NM} -D --defined-only ${PLUGIN}
  OUTPUT_VARIABLE symbols RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "nm failed on ${PLUGIN}")
endif()
string(REGEX MATCHALL "[0-9a-fA-F]+ [A-Za-z] [^\n]+" entries "${symbols}")
set(defined "")
foreach(entry IN LISTS entries)
  string(REGEX REPLACE "^[0-9a-fA-F]+ [A-Za-z] " "" name "${entry}")
  list(APPEND defined "${name}")
endforeach()
if(NOT defined STREQUAL "REALPluginMain")
  message(FATAL_ERROR "exported: ${defined}")
endif()
message(STATUS "exported: ${defined}")

# Nothing of the plug-in runs before REALPluginMain: no static constructors.
execute_process(COMMAND ${NM} ${PLUGIN} OUTPUT_VARIABLE all_symbols)
string(REGEX MATCHALL "_GLOBAL__sub_I[^\n]*" constructors "${all_symbols}")
if(constructors)
  message(FATAL_ERROR "static initialisers: ${constructors}")
endif()
