# CPack pre-build script: every staged file and folder gets the commit's time,
# owner root and a mode that no umask chose, before CPack reads them.
file(GLOB_RECURSE entries LIST_DIRECTORIES true "${CPACK_TEMPORARY_DIRECTORY}/*")
foreach(entry IN LISTS entries)
  if(IS_DIRECTORY "${entry}")
    set(mode 755)
  else()
    set(mode 644)
  endif()
  execute_process(COMMAND chmod ${mode} "${entry}" COMMAND_ERROR_IS_FATAL ANY)
endforeach()
# chown works as root, and under fakeroot for anyone else (scripts/release).
execute_process(COMMAND chown -R 0:0 "${CPACK_TEMPORARY_DIRECTORY}" COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND touch -h -d "@${CPACK_QVT_EPOCH}" ${entries} COMMAND_ERROR_IS_FATAL ANY)
