# Checks that every function that the library imports is one that the fault injection knows: it is wrapped, or listed as
# one without a fault. And that none is wrapped that is not imported.
cmake_minimum_required(VERSION 3.25)
execute_process(COMMAND ${NM} --undefined-only --format=posix ${LIBRARY} OUTPUT_VARIABLE text ERROR_QUIET
  COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[A-Za-z_][A-Za-z0-9_@.]* U" imports "${text}")
list(TRANSFORM imports REPLACE " U$" "")
list(REMOVE_DUPLICATES imports)
# C++ names, the compiler's and the linker's own, and those of the sanitizers.
list(FILTER imports EXCLUDE REGEX "^(_Z|__cxa_|_Unwind_|__gxx_|_GLOBAL_|__(a|t|ub|l)san_|__sanitizer_|__tls_|__dso_|__dynamic_|__u.*ti3$|__stack_)")
list(LENGTH imports count)
if(count LESS 100)
  message(FATAL_ERROR "only ${count} imports found")
endif()

file(STRINGS ${HARMLESS} lines REGEX "^[^#]")
list(JOIN lines " " harmless)
string(REPLACE " " ";" harmless "${harmless}")
foreach(symbol IN LISTS imports)
  if(NOT symbol IN_LIST SYMBOLS AND NOT symbol IN_LIST harmless)
    message(SEND_ERROR "${symbol} is imported, and no fault is injected for it")
  endif()
endforeach()
foreach(symbol IN LISTS SYMBOLS)
  if(NOT symbol IN_LIST imports)
    message(SEND_ERROR "${symbol} is wrapped, and nothing calls it")
  endif()
endforeach()
