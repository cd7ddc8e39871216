# How everything is compiled: one function makes a layer, one a program, one a test.

find_package(Threads REQUIRED)

add_library(kv_flags INTERFACE)
target_include_directories(kv_flags INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(kv_flags INTERFACE
  $<$<COMPILE_LANGUAGE:CXX>:-Wall -Wextra -Wconversion -Wshadow -Werror>
  $<$<COMPILE_LANGUAGE:C>:-Wall -Wextra -Werror>)
# GCC 12 takes appending to a std::string for an overlapping copy when it optimises (its bug 105651).
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(kv_flags INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
endif()
# Sizes are checked for hosts where they have 32 bits too; Clang says of each that it cannot be so here.
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(kv_flags INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-tautological-constant-out-of-range-compare>)
endif()
target_link_libraries(kv_flags INTERFACE Threads::Threads)
if(KV_SANITIZE)
  target_compile_options(kv_flags INTERFACE -fsanitize=${KV_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(kv_flags INTERFACE -fsanitize=${KV_SANITIZE})
  target_compile_definitions(kv_flags INTERFACE KV_PLAIN_OBJECTS)
endif()
# What is run is counted by libFuzzer, to find new inputs, and by fuzz/Fuzz.cpp, to judge what an input costs.
if(KV_FUZZ)
  target_compile_options(kv_flags INTERFACE -fsanitize=fuzzer-no-link -fsanitize-coverage=trace-pc)
endif()

# kv_add_layer(NAME source...): one layer of the library as objects, so that its load-time work is never dropped by a
# linker. The target is kv_NAME.
function(kv_add_layer name)
  add_library(kv_${name} OBJECT ${ARGN})
  target_link_libraries(kv_${name} PUBLIC kv_flags)
  target_compile_definitions(kv_${name} PRIVATE KVINVENTORY_BUILD)
  # Nobody replaces a function of the library when a program is loaded: its own calls need no detour.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(kv_${name} PRIVATE
      $<$<AND:$<COMPILE_LANGUAGE:CXX>,$<CONFIG:Release>>:-fno-semantic-interposition>)
  endif()
  set_property(GLOBAL APPEND PROPERTY KV_LAYERS kv_${name})
endfunction()

# kv_add_program(NAME source...): a program; what it links is added by the caller.
function(kv_add_program name)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE kv_flags)
endfunction()

# kv_add_test(NAME LAYERS layer... SOURCES source... [LIBRARIES library...]): a GoogleTest program over the objects of
# the named layers; one ctest entry, run on a network of its own. GoogleTest's header is precompiled once for all of them.
function(kv_add_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "LAYERS;SOURCES;LIBRARIES")
  add_executable(${name} ${arg_SOURCES})
  list(TRANSFORM arg_LAYERS PREPEND kv_)
  target_link_libraries(${name} PRIVATE kv_test_support ${arg_LAYERS} ${arg_LIBRARIES})
  if(NOT CMAKE_CXX_COMPILER_LAUNCHER)
    target_precompile_headers(${name} REUSE_FROM kv_test_header)
  endif()
  add_test(NAME ${name} COMMAND ${PROJECT_SOURCE_DIR}/tests/support/own-network.sh $<TARGET_FILE:${name}>)
  set_tests_properties(${name} PROPERTIES TIMEOUT 900)
endfunction()
