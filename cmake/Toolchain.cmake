# Language level, warnings and sanitizers that hold for every target.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
# A relocatable tree: programs find the libraries beside them, built or installed. Both have one search
# path: where they differ, room for the longer one is kept in the file, and the loader reads that as
# the current folder.
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
set(CMAKE_INSTALL_RPATH "$ORIGIN;$ORIGIN/../lib;$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
list(REMOVE_DUPLICATES CMAKE_INSTALL_RPATH)

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  # What ccache must be told, and the compiler further down, so that it keeps precompiled headers and
  # what was compiled with them.
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CMAKE_COMMAND}" -E env CCACHE_SLOPPINESS=pch_defines,time_macros
                                  "${CCACHE_PROGRAM}")
endif()

# What hiredis asks of those who include it, asked of all: they share precompiled headers.
add_compile_definitions(_FILE_OFFSET_BITS=64)
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wold-style-cast
                    -Woverloaded-virtual -Wnon-virtual-dtor -Werror)

# No -fcf-protection: Debian 12's C library is not built for it, so no process would be marked, and a
# request would pay for it.
option(MISCSNMP_HARDENING "Harden what is built as Debian does" OFF)
if(MISCSNMP_HARDENING)
  include(CheckPIESupported)
  check_pie_supported(LANGUAGES CXX)
  add_compile_definitions(_FORTIFY_SOURCE=2)
  add_compile_options(-fstack-protector-strong -fstack-clash-protection -Werror=format-security)
  add_link_options("LINKER:-z,relro,-z,now")
endif()

set(MISCSNMP_SANITIZE "" CACHE STRING "Sanitizers, as -fsanitize= takes them")
if(MISCSNMP_SANITIZE)
  add_compile_options(-fsanitize=${MISCSNMP_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${MISCSNMP_SANITIZE})
endif()

option(MISCSNMP_COVERAGE "Instrument for gcov" OFF)
if(MISCSNMP_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()

option(MISCSNMP_PCH "Precompile the headers that most sources and tests include" OFF)
if(MISCSNMP_PCH AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_compile_options(-fpch-preprocess)
elseif(MISCSNMP_PCH)
  add_compile_options("SHELL:-Xclang -fno-pch-timestamp")
endif()

option(MISCSNMP_UNITY "Compile the files of a folder several at a time, as if they were one" OFF)
set(CMAKE_UNITY_BUILD ${MISCSNMP_UNITY})
set(CMAKE_UNITY_BUILD_BATCH_SIZE 8)
if(MISCSNMP_UNITY AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # It spares the file that is compiled and takes those that are part of it for headers.
  add_compile_options(-Wno-subobject-linkage)
endif()
