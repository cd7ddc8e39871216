# The layers' sources are also read, syntax only, by compilers of hosts where `long` has 32 bits: Windows x64 and i686.
# KV_CHECK_PORTABLE makes that a part of the build.
option(KV_CHECK_PORTABLE "Check the sources for Windows x64 and for 32 bits, syntax only" OFF)
if(NOT KV_CHECK_PORTABLE)
  return()
endif()

find_program(KV_MINGW_CXX x86_64-w64-mingw32-g++-posix REQUIRED)

# Header-only libraries are shared by all hosts; links keep this system's own headers out of the way.
set(kv_portable_include ${CMAKE_BINARY_DIR}/portable/include)
file(MAKE_DIRECTORY ${kv_portable_include})
foreach(header IN ITEMS asio asio.hpp)
  file(CREATE_LINK /usr/include/${header} ${kv_portable_include}/${header} SYMBOLIC)
endforeach()

set(kv_portable_flags -std=c++20 -Wall -Wextra -Wconversion -Wshadow -Werror -DKVINVENTORY_BUILD -I${PROJECT_SOURCE_DIR})

function(kv_check_portable host)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "COMMAND")
  get_property(layers GLOBAL PROPERTY KV_LAYERS)
  set(stamps)
  foreach(layer IN LISTS layers)
    get_target_property(folder ${layer} SOURCE_DIR)
    get_target_property(sources ${layer} SOURCES)
    foreach(source IN LISTS sources)
      if(NOT source MATCHES "\\.cpp$" OR source MATCHES "^/")
        continue()
      endif()
      set(stamp ${CMAKE_BINARY_DIR}/portable/${host}/${layer}/${source}.ok)
      get_filename_component(stampFolder ${stamp} DIRECTORY)
      file(MAKE_DIRECTORY ${stampFolder})
      add_custom_command(OUTPUT ${stamp}
        COMMAND ${arg_COMMAND} ${kv_portable_flags} -fsyntax-only -MMD -MF ${stamp}.d -MT ${stamp} ${folder}/${source}
        COMMAND ${CMAKE_COMMAND} -E touch ${stamp}
        DEPENDS ${folder}/${source} DEPFILE ${stamp}.d COMMENT "Checking ${layer}/${source} for ${host}" VERBATIM)
      list(APPEND stamps ${stamp})
    endforeach()
  endforeach()
  add_custom_target(kv_portable_${host} ALL DEPENDS ${stamps})
endfunction()

kv_check_portable(windows COMMAND ${KV_MINGW_CXX} -DWIN32_LEAN_AND_MEAN -D_WIN32_WINNT=0x0A00 -isystem ${kv_portable_include})
kv_check_portable(i686 COMMAND ${CMAKE_CXX_COMPILER} -m32)
