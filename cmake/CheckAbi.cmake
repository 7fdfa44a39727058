# Compares what the shared library exports with the list that is kept in the tree: programs that were linked against the
# library must go on running with the next one of the same SONAME.
#   cmake -D NM=<nm> -D LIBRARY=<shared library> -D LIST=<file> [-D UPDATE=ON] -P CheckAbi.cmake
cmake_policy(VERSION 3.25)
execute_process(COMMAND ${NM} -D -C --defined-only --extern-only --format=posix ${LIBRARY}
  OUTPUT_VARIABLE output RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${NM} cannot read ${LIBRARY}: ${result}")
endif()

# A line is a name, a letter for its kind, and numbers. A constructor or destructor has several symbols of one name.
string(REGEX REPLACE "\\[abi:[a-z0-9]+\\]" "" output "${output}")  # CMake's lists take brackets for their own
string(REPLACE "\n" ";" lines "${output}")
set(exported "")
foreach(line IN LISTS lines)
  if(line MATCHES "^(.*) [A-Za-z] [0-9a-f]+ [0-9a-f]*$")
    list(APPEND exported "${CMAKE_MATCH_1}")
  endif()
endforeach()
list(SORT exported)
list(REMOVE_DUPLICATES exported)

foreach(name IN LISTS exported)
  if(NOT name MATCHES "^((vtable|typeinfo|typeinfo name) for )?vk::tq::")
    message(SEND_ERROR "exported, and no name of vk::tq: ${name}")
  endif()
endforeach()
if(UPDATE)
  list(JOIN exported "\n" text)
  file(WRITE ${LIST} "${text}\n")
  return()
endif()

file(STRINGS ${LIST} listed)
set(added ${exported})
list(REMOVE_ITEM added ${listed})
set(removed ${listed})
list(REMOVE_ITEM removed ${exported})
if(added OR removed)
  list(TRANSFORM added PREPEND "\n  added:   ")
  list(TRANSFORM removed PREPEND "\n  removed: ")
  message(FATAL_ERROR "The exported names are not those of ${LIST}:" ${added} ${removed} "\n"
    "If that is meant, `make abi` brings the list up to date; a name that is removed also asks for a new major version "
    "in CMakeLists.txt, and with it a new SONAME.")
endif()
