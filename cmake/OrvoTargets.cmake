# Defines how all targets of the project are built, so that folders only list their own files.

find_program(ORVO_CCACHE ccache)
if(ORVO_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${ORVO_CCACHE})
endif()

# Warnings, sanitizers and floating point options of our own targets.
add_library(orvo_build_options INTERFACE)
target_compile_options(orvo_build_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror
  # The product of a fused multiply-add is rounded once, that of a plain one twice. If the compiler chose, the same
  # expression could round differently in the vector body and in the tail of a loop, so results would depend on how
  # rows are split among threads.
  -ffp-contract=off
  # Roots are only taken of numbers that have one, and no code reads errno.
  -fno-math-errno)
if(ORVO_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "ORVO_FUZZ needs Clang, whose libFuzzer drives the targets of fuzz/; this is ${CMAKE_CXX_COMPILER_ID}. "
      "Without ORVO_FUZZ they are built to replay their seeds.")
  endif()
  # Coverage guides the fuzzer everywhere; its main() is only linked to the targets of fuzz/.
  set(ORVO_SANITIZE address,undefined,fuzzer-no-link)
endif()
if(ORVO_SANITIZE)
  target_compile_options(orvo_build_options INTERFACE -fsanitize=${ORVO_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(orvo_build_options INTERFACE -fsanitize=${ORVO_SANITIZE})
  # Rows of pictures are checked against their height, and planes come filled with NaN.
  target_compile_definitions(orvo_build_options INTERFACE ORVO_CHECKED)
  if(ORVO_SANITIZE MATCHES thread)
    target_include_directories(orvo_build_options BEFORE INTERFACE ${PROJECT_SOURCE_DIR}/cmake/tsan)
  endif()
endif()

# orvo_library(NAME SOURCES a.cpp... [USES public targets...] [INTERNAL private targets...])
# A static library. Public headers are in include/NAME/ beside the sources.
function(orvo_library NAME)
  cmake_parse_arguments(ARG "" "" "SOURCES;USES;INTERNAL" ${ARGN})
  add_library(${NAME} STATIC ${ARG_SOURCES})
  target_include_directories(${NAME}
    PUBLIC $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>
    PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/src)
  target_link_libraries(${NAME} PUBLIC ${ARG_USES} PRIVATE $<BUILD_INTERFACE:orvo_build_options> ${ARG_INTERNAL})
endfunction()

# orvo_test(NAME LABEL folder SOURCES a_test.cpp... USES targets... [SLOW patterns...])
# One GoogleTest program, labelled with its folder. Its fast tests run as one process, since starting a thousand
# processes that each load OpenCV takes longer than most of the tests. SLOW names the tests, as --gtest_filter takes
# them, that take seconds: each is a test of ctest of its own, labelled slow, so that cores share them. A suite that
# has real pictures or videos in its name is slow without being listed.
set(ORVO_SLOW_TESTS "*Real*")
function(orvo_test NAME)
  if(NOT ORVO_TESTS)
    return()
  endif()
  cmake_parse_arguments(ARG "" "LABEL" "SOURCES;USES;SLOW" ${ARGN})
  add_executable(${NAME} ${ARG_SOURCES})
  # tests/support is for every room's tests.
  target_include_directories(${NAME} PRIVATE
    ${CMAKE_CURRENT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(${NAME} PRIVATE orvo_build_options ${ARG_USES} GTest::gmock GTest::gtest_main)
  list(JOIN ARG_SLOW ":" SLOW)
  set(SLOW "${ORVO_SLOW_TESTS}:${SLOW}")
  # The reports are what scripts/slowest_tests.py reads.
  set(REPORTS ${CMAKE_BINARY_DIR}/Testing/reports)
  add_test(NAME ${NAME} COMMAND ${NAME} --gtest_filter=-${SLOW} --gtest_output=xml:${REPORTS}/${NAME}.xml)
  set_tests_properties(${NAME} PROPERTIES LABELS "${ARG_LABEL};fast" TIMEOUT 900)
  gtest_discover_tests(${NAME} TEST_FILTER ${SLOW} TEST_LIST ${NAME}_SLOW DISCOVERY_TIMEOUT 60 XML_OUTPUT_DIR ${REPORTS}
    PROPERTIES TIMEOUT 900)
  # gtest_discover_tests() passes a single label only, so ctest adds both when it reads the discovered tests.
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/${NAME}_labels.cmake
    "foreach(TEST IN LISTS ${NAME}_SLOW)\n"
    "  set_tests_properties(\"\${TEST}\" PROPERTIES LABELS \"${ARG_LABEL};slow\")\n"
    "endforeach()\n")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${CMAKE_CURRENT_BINARY_DIR}/${NAME}_labels.cmake)
endfunction()
