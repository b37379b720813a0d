# How every target of the project is made. One function per kind of target; folders only name sources and neighbours.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()

# "asan-ubsan", "tsan" or empty.
set(TESSARIN_SANITIZER "" CACHE STRING "Sanitizers to build with")
option(TESSARIN_TESTS "Build the tests" ON)
option(TESSARIN_BENCH "Build the benchmarks" OFF)
option(TESSARIN_FUZZ "Build the fuzzers with libFuzzer (clang)" OFF)

find_package(Threads REQUIRED)
find_package(Boost 1.81 REQUIRED COMPONENTS headers regex)
find_package(GTest)
find_package(PkgConfig REQUIRED)
pkg_check_modules(ACE REQUIRED IMPORTED_TARGET ACE)
pkg_check_modules(SQLITE REQUIRED IMPORTED_TARGET sqlite3)
pkg_check_modules(ZSTD REQUIRED IMPORTED_TARGET libzstd)
pkg_check_modules(LZO2 REQUIRED IMPORTED_TARGET lzo2)
pkg_check_modules(XXHASH REQUIRED IMPORTED_TARGET libxxhash)
pkg_check_modules(CURL REQUIRED IMPORTED_TARGET libcurl)
pkg_check_modules(EXPAT REQUIRED IMPORTED_TARGET expat)
pkg_check_modules(PROMETHEUS REQUIRED IMPORTED_TARGET prometheus-cpp-core)
pkg_check_modules(SIMDJSON REQUIRED IMPORTED_TARGET simdjson)
find_package(OpenSSL REQUIRED)

find_program(TESSARIN_LLD NAMES ld.lld)

# Flags of all our code: warnings are errors, source paths in logs are relative to src/.
add_library(tessarin_flags INTERFACE)
target_compile_options(tessarin_flags INTERFACE
  -Wall -Wextra -Werror -Wnon-virtual-dtor -Wimplicit-fallthrough -Wunused-result
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>  # false alarms of GCC 12 on assignments to strings
  -fmacro-prefix-map=${CMAKE_SOURCE_DIR}/= -fmacro-prefix-map=${CMAKE_SOURCE_DIR}/src/=)
target_include_directories(tessarin_flags INTERFACE "${CMAKE_SOURCE_DIR}/src")
target_link_libraries(tessarin_flags INTERFACE Threads::Threads Boost::headers PkgConfig::ACE)
if(TESSARIN_LLD)
  target_link_options(tessarin_flags INTERFACE -fuse-ld=lld)
endif()
if(TESSARIN_SANITIZER STREQUAL "asan-ubsan")
  target_compile_options(tessarin_flags INTERFACE -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer
    $<$<CXX_COMPILER_ID:Clang>:-fno-sanitize=function>)  # Clang 14 cannot assemble coroutines with it
  target_link_options(tessarin_flags INTERFACE -fsanitize=address,undefined)
elseif(TESSARIN_SANITIZER STREQUAL "tsan")
  # GCC 12 sees strings written out of bounds where calls of TSan stand between its own checks.
  target_compile_options(tessarin_flags INTERFACE -fsanitize=thread -fno-omit-frame-pointer
    $<$<CXX_COMPILER_ID:GNU>:-Wno-array-bounds> $<$<CXX_COMPILER_ID:GNU>:-Wno-stringop-overflow>)  # false alarms of GCC 12 on concatenated strings
  target_link_options(tessarin_flags INTERFACE -fsanitize=thread)
elseif(TESSARIN_SANITIZER)
  message(FATAL_ERROR "TESSARIN_SANITIZER is '${TESSARIN_SANITIZER}': asan-ubsan, tsan or empty")
endif()

# Sanitizer builds compile the headers that nearly every source reads once. Release builds go without, so that a source
# that forgot an include is found.
if(TESSARIN_SANITIZER)
  file(WRITE "${CMAKE_BINARY_DIR}/library_pch.cpp" "")
  add_library(library_pch OBJECT "${CMAKE_BINARY_DIR}/library_pch.cpp")
  target_precompile_headers(library_pch PRIVATE
    <algorithm> <atomic> <cerrno> <chrono> <condition_variable> <cstring> <functional> <map> <memory> <mutex> <string>
    <string_view> <thread> <vector> <ace/Log_Msg.h> <ace/Recursive_Thread_Mutex.h> <ace/Refcounted_Auto_Ptr.h>
    <boost/variant/variant.hpp>)
  target_link_libraries(library_pch PRIVATE tessarin_flags)
endif()

# Sanitizer builds compile several sources of a target as one, for the same reason: it halves the time. Release builds do
# not, so that names and includes of each source stand on their own. ALONE is for targets whose sources use one name for
# different things.
if(TESSARIN_SANITIZER)
  set(CMAKE_UNITY_BUILD ON)
  set(CMAKE_UNITY_BUILD_BATCH_SIZE 8)
endif()

# tessarin_library(<name> SOURCES <files> [DEPS <our libraries>] [LIBS <external targets>] [ALONE])
#
# Makes <name>, a static library that tests and programs link with all that it needs, and <name>_objects, the same
# objects for the shared libraries.
function(tessarin_library name)
  cmake_parse_arguments(ARG "ALONE" "" "SOURCES;DEPS;LIBS" ${ARGN})
  add_library(${name}_objects OBJECT ${ARG_SOURCES})
  target_link_libraries(${name}_objects PUBLIC tessarin_flags ${ARG_LIBS})
  if(TARGET library_pch)
    target_precompile_headers(${name}_objects REUSE_FROM library_pch)
  endif()
  if(ARG_ALONE)
    set_target_properties(${name}_objects PROPERTIES UNITY_BUILD OFF)
  endif()
  add_library(${name} STATIC $<TARGET_OBJECTS:${name}_objects>)
  set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX)
  target_link_libraries(${name} PUBLIC tessarin_flags ${ARG_DEPS} ${ARG_LIBS})
endfunction()

# Flags of all tests, the precompiled header among them: includes are relative to src/ or, for "support/...", to test/.
add_library(test_flags INTERFACE)
target_link_libraries(test_flags INTERFACE tessarin_flags GTest::gmock GTest::gtest)
target_include_directories(test_flags INTERFACE "${CMAKE_SOURCE_DIR}/test")
target_compile_definitions(test_flags INTERFACE TEST_DATA_DIR="${CMAKE_SOURCE_DIR}/test/data")

# tessarin_program(<name> SOURCES <files> [DEPS <libraries>] [LIBS <external targets>])
function(tessarin_program name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS;LIBS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE tessarin_flags ${ARG_DEPS} ${ARG_LIBS})
endfunction()

# All test programs. What they do not need is not built for a run of the tests.
add_custom_target(all_tests)

# tessarin_test(<name> SOURCES <files> [DEPS <libraries>] [LABELS <unit|integration|system> [tsan]] [SANDBOX] [ALONE]
#               [TIMEOUT <sec>] [REQUESTS <control|agent>])
#
# A GoogleTest program. The label "tsan" says that it has threads and runs under TSan too. SANDBOX runs it in a user and
# mount namespace of its own, with an empty /var/cache. Each program is one CTest test. REQUESTS collects what it asks of
# an API server, for the rights that the agent or the control pod is given (deploy/CMakeLists.txt).
function(tessarin_test name)
  if(NOT TESSARIN_TESTS)
    return()
  endif()
  cmake_parse_arguments(ARG "SANDBOX;ALONE" "TIMEOUT;REQUESTS" "SOURCES;DEPS;LIBS;LABELS" ${ARGN})
  if(NOT ARG_LABELS)
    set(ARG_LABELS unit)
  endif()
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 600)
  endif()
  if(TESSARIN_SANITIZER STREQUAL "tsan" AND NOT "tsan" IN_LIST ARG_LABELS)
    return()
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_precompile_headers(${name} REUSE_FROM test_pch)
  if(ARG_ALONE)
    set_target_properties(${name} PROPERTIES UNITY_BUILD OFF)
  endif()
  if(ARG_SANDBOX)
    target_link_libraries(${name} PRIVATE test_sandbox_main)
  else()
    target_link_libraries(${name} PRIVATE test_main)
  endif()
  target_link_libraries(${name} PRIVATE ${ARG_DEPS} ${ARG_LIBS} test_support)
  add_dependencies(all_tests ${name})
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES LABELS "${ARG_LABELS}" TIMEOUT ${ARG_TIMEOUT})
  if(ARG_REQUESTS AND NOT TESSARIN_SANITIZER STREQUAL "tsan")
    set_tests_properties(${name} PROPERTIES FIXTURES_REQUIRED kube_requests_begin FIXTURES_SETUP kube_requests
      ENVIRONMENT "TESSARIN_REQUEST_LIST=${CMAKE_BINARY_DIR}/kube-requests/${ARG_REQUESTS}-${name}")
  endif()
endfunction()

# tessarin_bench(<name> SOURCES <files> [DEPS <libraries>] [LIBS <external targets>]): a Google Benchmark program.
function(tessarin_bench name)
  if(NOT TESSARIN_BENCH)
    return()
  endif()
  find_package(benchmark REQUIRED)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS;LIBS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE tessarin_flags ${ARG_DEPS} ${ARG_LIBS} benchmark::benchmark)
endfunction()

# tessarin_fuzz(<name> SOURCES <files> DEPS <libraries> CORPUS <folder below fuzz/corpus>)
#
# The sources define LLVMFuzzerTestOneInput. With a compiler that has libFuzzer and the preset "fuzz" this is a fuzzer;
# otherwise a program that replays files, and CTest replays the corpus with it. A missing corpus fails.
function(tessarin_fuzz name)
  cmake_parse_arguments(ARG "" "CORPUS" "SOURCES;DEPS;LIBS" ${ARGN})
  if(TESSARIN_FUZZ)
    add_executable(${name} ${ARG_SOURCES})
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  elseif(TESSARIN_TESTS AND NOT TESSARIN_SANITIZER STREQUAL "tsan")
    add_executable(${name} ${ARG_SOURCES} "${CMAKE_SOURCE_DIR}/fuzz/replay_main.cpp")
    add_test(NAME ${name}_corpus COMMAND ${name} "${CMAKE_SOURCE_DIR}/fuzz/corpus/${ARG_CORPUS}")
    set_tests_properties(${name}_corpus PROPERTIES LABELS unit TIMEOUT 120)
  else()
    return()
  endif()
  target_link_libraries(${name} PRIVATE ${ARG_DEPS} ${ARG_LIBS} tessarin_flags)
endfunction()
