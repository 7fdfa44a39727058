# Installs the library into a folder and builds a program that finds and links it as the README tells.
#   cmake -D ROOT=<source folder> -D BUILD=<build folder> -D WORK=<folder for its files> -P CheckPackage.cmake
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK}/program)
file(COPY ${ROOT}/examples/hold_job.cpp DESTINATION ${WORK}/program)
file(WRITE ${WORK}/program/CMakeLists.txt "
cmake_minimum_required(VERSION 3.25)
project(program LANGUAGES CXX)
find_package(vk.tq.commonlib 1.0 REQUIRED)
add_executable(hold_job hold_job.cpp)
target_link_libraries(hold_job PRIVATE vk::tq::commonlib)
")
foreach(command IN ITEMS
    "--install;${BUILD};--prefix;${WORK}/prefix"
    "-S;${WORK}/program;-B;${WORK}/build;-DCMAKE_PREFIX_PATH=${WORK}/prefix;-DCMAKE_CXX_FLAGS=${FLAGS}"
    "--build;${WORK}/build")
  execute_process(COMMAND ${CMAKE_COMMAND} ${command} OUTPUT_VARIABLE output ERROR_VARIABLE output
    RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${command}: ${output}")
  endif()
endforeach()
file(REMOVE_RECURSE ${WORK})
