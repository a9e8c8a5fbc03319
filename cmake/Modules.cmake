# Each folder is a target, which links what docs/architecture.md lets it know.
#
# MISCSNMP_PCH and MISCSNMP_UNITY save time, most of which goes into headers and into templates that
# every file instantiates again: the headers of others are compiled once, and the files of a folder
# eight at a time, as if they were one. Files that call different things by one name in their unnamed
# namespaces are named after ALONE.

# precompile_as(NAME OWNER): compiles a target with the precompiled headers of another one that is
# compiled alike.
function(precompile_as name owner)
  if(MISCSNMP_PCH AND NOT name STREQUAL owner)
    target_precompile_headers(${name} REUSE_FROM ${owner})
  endif()
endfunction()

function(compile_alone)
  if(ARGN)
    set_source_files_properties(${ARGN} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
  endif()
endfunction()

# object_library(NAME INCLUDE_ROOT SOURCES DEPENDS... [ALONE FILE...]): objects rather than archives,
# so that static registrations survive the link of the shared libraries made from them.
function(object_library name include_root sources)
  cmake_parse_arguments(arg "" "" ALONE ${ARGN})
  add_library(${name} OBJECT ${sources})
  target_include_directories(${name} PUBLIC "$<BUILD_INTERFACE:${include_root}>")
  target_link_libraries(${name} PUBLIC ${arg_UNPARSED_ARGUMENTS})
  compile_alone(${arg_ALONE})
  set_target_properties(${name} PROPERTIES UNITY_BUILD_BATCH_SIZE 32)
  precompile_as(${name} Qel)
endfunction()

# module_library(NAME INCLUDE_ROOT DEPENDS... [ALONE FILE...]): an object library of every source in
# this folder.
function(module_library name include_root)
  file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp")
  object_library(${name} "${include_root}" "${sources}" ${ARGN})
endfunction()

# module_test(NAME DEPENDS... [ALONE FILE...]): one test program of every *Test.cpp in this folder.
function(module_test name)
  cmake_parse_arguments(arg "" "" ALONE ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp")
  add_executable(${name} ${sources})
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/tests")
  target_link_libraries(${name} PRIVATE ${arg_UNPARSED_ARGUMENTS} GTest::gmock GTest::gtest_main)
  compile_alone(${arg_ALONE})
  precompile_as(${name} test_headers)
  if(MISCSNMP_SANITIZE)
    # As a whole: a sanitizer takes longer to start than most tests to run.
    add_test(NAME ${name} COMMAND ${name} --gtest_brief=1)
    set_tests_properties(${name} PROPERTIES TIMEOUT 600)
    # Begun before the short ones, so that none is left alone at the end.
    if(name MATCHES "^kavra_(redis|file)_test$")
      set_tests_properties(${name} PROPERTIES COST 100)
    endif()
  else()
    gtest_discover_tests(${name} TEST_PREFIX "${name}." DISCOVERY_MODE PRE_TEST
                         PROPERTIES TIMEOUT 300)
  endif()
endfunction()
