# Language level, warnings and sanitizers that hold for every target.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
# A relocatable tree: programs find the libraries beside them, built or installed.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
set(CMAKE_INSTALL_RPATH "$ORIGIN;$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wold-style-cast
                    -Woverloaded-virtual -Wnon-virtual-dtor -Werror)

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
