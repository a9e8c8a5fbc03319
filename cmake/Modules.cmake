# Each folder is a target, which links what docs/architecture.md lets it know.

# object_library(NAME INCLUDE_ROOT SOURCES DEPENDS...): objects rather than archives, so that static
# registrations survive the link of the shared libraries made from them.
function(object_library name include_root sources)
  add_library(${name} OBJECT ${sources})
  target_include_directories(${name} PUBLIC "$<BUILD_INTERFACE:${include_root}>")
  target_link_libraries(${name} PUBLIC ${ARGN})
endfunction()

# module_library(NAME INCLUDE_ROOT DEPENDS...): an object library of every source in this folder.
function(module_library name include_root)
  file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp")
  object_library(${name} "${include_root}" "${sources}" ${ARGN})
endfunction()

# module_test(NAME DEPENDS...): one test program of every *Test.cpp in this folder.
function(module_test name)
  file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp")
  add_executable(${name} ${sources})
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/tests")
  target_link_libraries(${name} PRIVATE ${ARGN} GTest::gmock GTest::gtest_main)
  gtest_discover_tests(${name} TEST_PREFIX "${name}." DISCOVERY_MODE PRE_TEST
                       PROPERTIES TIMEOUT 300)
endfunction()
