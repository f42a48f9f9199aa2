# CPack post-build script: CPack's gzip header carries the packing time;
# the stream is written again without a name or a time (gzip -n).
foreach(archive IN LISTS CPACK_PACKAGE_FILES)
  if(archive MATCHES "\\.tar\\.gz$")
    execute_process(COMMAND gzip -dc "${archive}" OUTPUT_FILE "${archive}.tar"
                    COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND gzip -n -9 -f "${archive}.tar" COMMAND_ERROR_IS_FATAL ANY)
    file(RENAME "${archive}.tar.gz" "${archive}")
  endif()
endforeach()
