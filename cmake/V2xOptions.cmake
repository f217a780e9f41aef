# Compiler and linker options of every target of the project. Usage: v2x_options(target)
set(V2X_SANITIZE "" CACHE STRING "Sanitizers to build with, in the syntax of -fsanitize; empty for none")
option(V2X_COVERAGE "Record which lines and branches the tests execute (gcc only)" OFF)
option(V2X_FUZZ "Also build the fuzz targets for libFuzzer (clang only)" OFF)

find_program(V2X_CCACHE ccache)
if(V2X_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  # ccache caches files with precompiled headers only with the sloppiness pch_defines and time_macros. The base directory
  # and the sloppiness locale let builds in different folders share objects, also with the build of the Debian packages.
  # The depend mode saves a run of the preprocessor for each new object.
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${CMAKE_SOURCE_DIR}
    CCACHE_DEPEND=1 CCACHE_SLOPPINESS=pch_defines,time_macros,locale ${V2X_CCACHE})
  set(CMAKE_C_COMPILER_LAUNCHER ${CMAKE_CXX_COMPILER_LAUNCHER})
endif()

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -g1")
set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O1 -g1")
set(CMAKE_CXX_FLAGS_DEBUG "-O0 -g1")
set(CMAKE_C_FLAGS_RELEASE ${CMAKE_CXX_FLAGS_RELEASE})
set(CMAKE_C_FLAGS_RELWITHDEBINFO ${CMAKE_CXX_FLAGS_RELWITHDEBINFO})
set(CMAKE_C_FLAGS_DEBUG ${CMAKE_CXX_FLAGS_DEBUG})
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)

# Objects contain paths relative to the build folder, with and without ccache. The compiler tries the last map first.
file(RELATIVE_PATH source_folder ${CMAKE_BINARY_DIR} ${CMAKE_SOURCE_DIR})
add_library(v2x_flags INTERFACE)
target_compile_options(v2x_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2 -Werror
  -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=${source_folder}
  -ffile-prefix-map=${CMAKE_BINARY_DIR}=. -ffile-prefix-map=${CMAKE_BINARY_DIR}/=)
if(V2X_COVERAGE)
  target_compile_options(v2x_flags INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(v2x_flags INTERFACE --coverage)
elseif(V2X_SANITIZE)
  target_compile_options(v2x_flags INTERFACE
    -fsanitize=${V2X_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(v2x_flags INTERFACE -fsanitize=${V2X_SANITIZE})
  if(V2X_FUZZ)
    target_compile_options(v2x_flags INTERFACE -fsanitize=fuzzer-no-link)
  endif()
else()
  target_compile_options(v2x_flags INTERFACE
    -D_FORTIFY_SOURCE=3 -fstack-protector-strong -fstack-clash-protection -D_GLIBCXX_ASSERTIONS)
  target_link_options(v2x_flags INTERFACE -pie -Wl,-z,relro,-z,now)
endif()

function(v2x_options target)
  target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:v2x_flags>)
endfunction()

# v2x_no_cxx_runtime(TARGET): C programs link this library without the C++ runtime, so its C++ code must not call it.
function(v2x_no_cxx_runtime target)
  target_compile_options(${target} PRIVATE
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions;-fno-rtti;-fno-threadsafe-statics>)
endfunction()
