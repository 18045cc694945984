# cv_library(NAME SOURCES... [LINK libraries...]): one layer folder as a static library.
# Includes are written from the root of the layers ("core/thread.h") or, for the applications,
# from the root of the tree ("medianode/report.h").
function(cv_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR}/lib ${CMAKE_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${ARG_LINK} Threads::Threads)
endfunction()

# How long an executable may take to list its tests: long, because scripts/test builds beside running tests,
# in the time that they leave.
set(cv_discovery_timeout_s 600)

# cv_test(NAME SOURCES... [LINK libraries...]): one test executable a folder, its cases known to ctest.
function(cv_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests)
  target_link_libraries(${name} PRIVATE ${ARG_LINK} cv_test_support GTest::gtest_main)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT ${cv_discovery_timeout_s} PROPERTIES TIMEOUT 600)
endfunction()
