# Parsing Qt takes most of the time that a test takes to compile. What is defined for this target
# must be defined for all that share its headers.
file(CONFIGURE OUTPUT korrin_test_headers.cpp CONTENT "")
add_library(korrin_test_headers OBJECT ${CMAKE_CURRENT_BINARY_DIR}/korrin_test_headers.cpp)
set_target_properties(korrin_test_headers PROPERTIES CXX_EXTENSIONS OFF)
target_link_libraries(korrin_test_headers PRIVATE Korrin::QtTest Korrin::Warnings)
target_precompile_headers(korrin_test_headers PRIVATE <QtNetwork> <QtTest>)

# korrin_add_test(NAME tst_x SOURCES tst_x.cpp... LABELS unit [TIMEOUT s] [LIBRARIES t...]
#                 [ARGUMENTS test functions...])
function(korrin_add_test)
  cmake_parse_arguments(ARG "" "NAME;TIMEOUT" "SOURCES;LABELS;LIBRARIES;ARGUMENTS" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 300) # for hangs: a busy machine may take ten times as long as an idle one
  endif()
  add_executable(${ARG_NAME} ${ARG_SOURCES})
  set_target_properties(${ARG_NAME} PROPERTIES AUTOMOC ON CXX_EXTENSIONS OFF)
  target_link_libraries(${ARG_NAME} PRIVATE ${ARG_LIBRARIES} Korrin::QtTest Korrin::Warnings)
  target_precompile_headers(${ARG_NAME} REUSE_FROM korrin_test_headers)
  add_test(NAME ${ARG_NAME} COMMAND ${ARG_NAME} ${ARG_ARGUMENTS})
  set_tests_properties(${ARG_NAME} PROPERTIES LABELS "${ARG_LABELS}" TIMEOUT ${ARG_TIMEOUT})
endfunction()
