# What is installed beside the library and the programs, which install themselves: the files by
# which CMake and pkg-config find the library, and the documents.
include(CMakePackageConfigHelpers)

function(_korrin_install_cmake_package)
  set(directory ${CMAKE_INSTALL_LIBDIR}/cmake/VornakKorrin)
  configure_package_config_file(
    ${PROJECT_SOURCE_DIR}/cmake/VornakKorrinConfig.cmake.in
    ${PROJECT_BINARY_DIR}/VornakKorrinConfig.cmake
    INSTALL_DESTINATION ${directory}
    NO_SET_AND_CHECK_MACRO
  )
  write_basic_package_version_file(
    ${PROJECT_BINARY_DIR}/VornakKorrinConfigVersion.cmake COMPATIBILITY SameMajorVersion
  )
  install(EXPORT VornakKorrinTargets NAMESPACE VornakKorrin:: DESTINATION ${directory})
  install(FILES
    ${PROJECT_BINARY_DIR}/VornakKorrinConfig.cmake
    ${PROJECT_BINARY_DIR}/VornakKorrinConfigVersion.cmake
    DESTINATION ${directory}
  )
endfunction()

# The prefix is written relative to the file, so that the whole tree can be moved. Not so in /usr:
# what is there stays, is looked at through sysroots, and its directories are those that compilers
# search anyway, which pkg-config leaves out if it knows them by name.
function(_korrin_pkgconfig_prefix directory result)
  if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(prefix /usr)
  else()
    cmake_path(ABSOLUTE_PATH directory BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX})
    file(RELATIVE_PATH prefix ${directory} ${CMAKE_INSTALL_PREFIX})
    string(REGEX REPLACE "/$" "" prefix "\${pcfiledir}/${prefix}")
  endif()
  set(${result} ${prefix} PARENT_SCOPE)
endfunction()

function(_korrin_install_pkgconfig)
  set(directory ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  _korrin_pkgconfig_prefix(${directory} pc_prefix)
  # A directory that was given as an absolute path stays one.
  cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_LIBDIR BASE_DIRECTORY "\${prefix}"
    OUTPUT_VARIABLE pc_libdir)
  cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_INCLUDEDIR BASE_DIRECTORY "\${prefix}"
    OUTPUT_VARIABLE pc_includedir)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/VornakKorrin.pc.in
    ${PROJECT_BINARY_DIR}/vornakkorrin.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/vornakkorrin.pc DESTINATION ${directory})
endfunction()

# A page for each function, made of the header.
function(_korrin_install_function_pages)
  find_program(KORRIN_DOXYGEN doxygen REQUIRED)
  set(directory ${PROJECT_BINARY_DIR}/manual)
  add_custom_command(
    OUTPUT ${directory}/man/man3/korrin.h.3
    COMMAND ${PROJECT_SOURCE_DIR}/scripts/docs ${directory}
    DEPENDS ${PROJECT_SOURCE_DIR}/src/api/VornakKorrin/korrin.h
      ${PROJECT_SOURCE_DIR}/docs/Doxyfile
      ${PROJECT_SOURCE_DIR}/scripts/docs
      ${PROJECT_SOURCE_DIR}/scripts/split-manual.awk
    VERBATIM
  )
  add_custom_target(manual ALL DEPENDS ${directory}/man/man3/korrin.h.3)
  install(DIRECTORY ${directory}/man/man3 DESTINATION ${CMAKE_INSTALL_MANDIR})
endfunction()

function(_korrin_install_documents)
  install(FILES README.md CHANGELOG.md LICENSE SECURITY.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
  install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs PATTERN man EXCLUDE
    PATTERN Doxyfile EXCLUDE)
  install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR}
    PATTERN CMakeLists.txt EXCLUDE)
  install(CODE "
    set(docdir \"${CMAKE_INSTALL_DOCDIR}\")
    cmake_path(ABSOLUTE_PATH docdir BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\")
    execute_process(COMMAND ${PROJECT_SOURCE_DIR}/scripts/unlink-absent
      \"\$ENV{DESTDIR}\${docdir}\" ${PROJECT_SOURCE_DIR} COMMAND_ERROR_IS_FATAL ANY)
  ")
  if(KORRIN_BUILD_TOOLS)
    install(FILES docs/man/korrin.1 docs/man/korrin-cloudsim.1
      DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  endif()
  if(KORRIN_BUILD_MANUAL)
    _korrin_install_function_pages()
  endif()
endfunction()

function(korrin_install_package)
  _korrin_install_cmake_package()
  _korrin_install_pkgconfig()
  _korrin_install_documents()
endfunction()
