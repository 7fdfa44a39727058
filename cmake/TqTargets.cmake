# The warnings that every target of the project is compiled with.
function(tq_compile_options target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
  if(TQ_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

# Adds the sources of one folder to the library.
function(tq_sources)
  list(TRANSFORM ARGN PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  target_sources(tq_objects PRIVATE ${ARGN})
endfunction()

# Programs around the library: tests, examples. They gain nothing by more optimisation, and GCC 12 warns falsely about
# strings and arrays in them when it inlines everything.
function(tq_program_options target)
  tq_compile_options(${target})
  target_compile_options(${target} PRIVATE $<$<CONFIG:Release>:-O1>)
endfunction()

# Adds the test program of one folder, tests_<name>; each of its test cases becomes a test of its own, labelled with the
# name. A test case whose name holds "Slow" has the label slow instead.
function(tq_tests name)
  set(target tests_${name})
  add_executable(${target} ${ARGN})
  tq_program_options(${target})
  target_link_libraries(${target} PRIVATE tq_test_support)
  gtest_discover_tests(${target} DISCOVERY_MODE PRE_TEST TEST_FILTER "-*Slow*"
    PROPERTIES LABELS ${name} TIMEOUT 240)
  gtest_discover_tests(${target} DISCOVERY_MODE PRE_TEST TEST_FILTER "*Slow*" TEST_LIST ${target}_slow
    PROPERTIES LABELS slow TIMEOUT 600)
endfunction()
