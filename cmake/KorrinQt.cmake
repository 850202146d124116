# The one place that knows the Qt major. Everything else links Korrin::Qt, Korrin::QtCore or
# Korrin::QtNetwork, and tests Korrin::QtTest.
set(KORRIN_QT_MAJOR 6 CACHE STRING "Qt major version to build against: 5 or 6")
set_property(CACHE KORRIN_QT_MAJOR PROPERTY STRINGS 5 6)

add_library(korrin_qt INTERFACE)
add_library(Korrin::Qt ALIAS korrin_qt)

if(KORRIN_QT_MAJOR EQUAL 6)
  set(KORRIN_QT_COMPONENTS Core Network Core5Compat)
  find_package(Qt6 6.4 REQUIRED COMPONENTS ${KORRIN_QT_COMPONENTS})
elseif(KORRIN_QT_MAJOR EQUAL 5)
  set(KORRIN_QT_COMPONENTS Core Network Xml)
  find_package(Qt5 5.15 REQUIRED COMPONENTS ${KORRIN_QT_COMPONENTS})
  # 5.15 marks its SAX reader as deprecated, which Qt 6 keeps in Core5Compat.
  target_compile_definitions(korrin_qt INTERFACE QT_DEPRECATED_WARNINGS_SINCE=0x050E00)
else()
  message(FATAL_ERROR "KORRIN_QT_MAJOR must be 5 or 6, not \"${KORRIN_QT_MAJOR}\"")
endif()
foreach(component ${KORRIN_QT_COMPONENTS})
  target_link_libraries(korrin_qt INTERFACE Qt${KORRIN_QT_MAJOR}::${component})
endforeach()

target_compile_features(korrin_qt INTERFACE cxx_std_17)
target_compile_definitions(korrin_qt INTERFACE
  QT_NO_CAST_FROM_ASCII
  QT_NO_CAST_TO_ASCII
  QT_NO_KEYWORDS
  QT_NO_FOREACH
)

# For what is linked to Qt Core alone.
add_library(korrin_qt_core INTERFACE)
add_library(Korrin::QtCore ALIAS korrin_qt_core)
target_link_libraries(korrin_qt_core INTERFACE Qt${KORRIN_QT_MAJOR}::Core)

# For what uses the network without the SAX reader.
add_library(korrin_qt_network INTERFACE)
add_library(Korrin::QtNetwork ALIAS korrin_qt_network)
target_link_libraries(korrin_qt_network INTERFACE Qt${KORRIN_QT_MAJOR}::Network)

if(KORRIN_BUILD_TESTS)
  find_package(Qt${KORRIN_QT_MAJOR} REQUIRED COMPONENTS Test)
  add_library(korrin_qt_test INTERFACE)
  add_library(Korrin::QtTest ALIAS korrin_qt_test)
  target_link_libraries(korrin_qt_test INTERFACE korrin_qt Qt${KORRIN_QT_MAJOR}::Test)
  # Qt 6 defines them with each target's place, and then no precompiled header can be shared.
  target_compile_options(korrin_qt_test INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-UQT_TESTCASE_BUILDDIR>
    $<$<COMPILE_LANGUAGE:CXX>:-UQT_TESTCASE_SOURCEDIR>
  )
endif()
