# The release package (QVT_PACKAGE=ON, as scripts/release configures it;
# included after the plug-in's targets): the plug-in stripped, its debug
# symbols apart, the README, the reference where it exists and the licence,
# packed by CPack into one archive and a symbols companion. Built twice from
# the same commit, in two folders, the archives are the same bytes.
option(QVT_PACKAGE "Build the release package (cpack)" OFF)
if(NOT QVT_PACKAGE)
  return()
endif()

# The plug-in's objects, with symbols for the companion archive. The build
# folder is the release's own choice: nothing of it, nor of the checkout's
# place, may reach the binary or its symbols.
set(QVT_SOURCE_PREFIX /usr/src/qvtmemory-${PROJECT_VERSION})
target_compile_options(qvt_core PRIVATE -g
  -ffile-prefix-map=${CMAKE_SOURCE_DIR}=${QVT_SOURCE_PREFIX}
  -ffile-prefix-map=${CMAKE_BINARY_DIR}=${QVT_SOURCE_PREFIX}/build)
if(WIN32)
  # The PE header keeps a link time unless told not to.
  target_link_options(qvtmemory PRIVATE -Wl,--no-insert-timestamp)
endif()

if(NOT DEFINED QVT_PACKAGE_PLATFORM)
  message(FATAL_ERROR "QVT_PACKAGE_PLATFORM (linux-x86_64, windows-x64, ...) is not set")
endif()
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  message(FATAL_ERROR "SOURCE_DATE_EPOCH is not set: scripts/release takes it from the commit")
endif()

set(QVT_PACKAGE_NAME QVTMemory-${PROJECT_VERSION}-${QVT_PACKAGE_PLATFORM})
set(plugin $<TARGET_FILE_NAME:qvtmemory>)
set(staged ${CMAKE_BINARY_DIR}/package)
# The symbols go apart first; the stripped plug-in names them (with their
# checksum) in .gnu_debuglink, where a debugger beside it finds them.
add_custom_command(OUTPUT ${staged}/stamp
  COMMAND ${CMAKE_COMMAND} -E make_directory ${staged}
  COMMAND ${CMAKE_OBJCOPY} --only-keep-debug $<TARGET_FILE:qvtmemory> ${staged}/${plugin}.debug
  COMMAND ${CMAKE_OBJCOPY} --strip-all --add-gnu-debuglink=${staged}/${plugin}.debug
          $<TARGET_FILE:qvtmemory> ${staged}/${plugin}
  COMMAND ${CMAKE_COMMAND} -E touch ${staged}/stamp
  DEPENDS qvtmemory
  COMMENT "Splitting the debug symbols off the plug-in")
add_custom_target(qvt_package_files ALL DEPENDS ${staged}/stamp)

# Both archives unpack into one folder, the symbols beside the plug-in.
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(top ${QVT_PACKAGE_NAME})
install(FILES ${staged}/${plugin} ${CMAKE_SOURCE_DIR}/README.md ${CMAKE_SOURCE_DIR}/LICENSE
  DESTINATION ${top} COMPONENT plugin)
if(EXISTS ${CMAKE_SOURCE_DIR}/docs/reference)
  install(DIRECTORY ${CMAKE_SOURCE_DIR}/docs/reference DESTINATION ${top}/docs
    COMPONENT plugin)
endif()
install(FILES ${staged}/${plugin}.debug DESTINATION ${top} COMPONENT symbols)

# cpack packs what scripts/release built; it need not build everything first.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)
set(CPACK_PACKAGE_NAME QVTMemory)
set(CPACK_PACKAGE_VENDOR "QVT Memory project")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_FILE_NAME ${QVT_PACKAGE_NAME})
if(WIN32)
  set(CPACK_GENERATOR ZIP)
else()
  set(CPACK_GENERATOR TGZ)
endif()
set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL plugin symbols)
set(CPACK_ARCHIVE_PLUGIN_FILE_NAME ${QVT_PACKAGE_NAME})
set(CPACK_ARCHIVE_SYMBOLS_FILE_NAME ${QVT_PACKAGE_NAME}-symbols)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/dist)
# CPack takes times, owners and modes from the staged files and writes the
# packing time into the gzip header: the scripts fix all of them.
set(CPACK_QVT_EPOCH $ENV{SOURCE_DATE_EPOCH})
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/package/normalise-staged.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/package/normalise-gzip.cmake)
include(CPack)
