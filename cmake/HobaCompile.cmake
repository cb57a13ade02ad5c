# SPDX-License-Identifier: Apache-2.0
# Language, warnings, code generation: the same for every target of the project.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "" FORCE)
endif()

set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
file(RELATIVE_PATH hobaBinToLib "/${CMAKE_INSTALL_BINDIR}" "/${CMAKE_INSTALL_LIBDIR}")
set(CMAKE_INSTALL_RPATH "$ORIGIN" "$ORIGIN/${hobaBinToLib}")

if(HOBA_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  find_program(HOBA_CCACHE_PROGRAM ccache)
  if(HOBA_CCACHE_PROGRAM)
    set(CMAKE_CXX_COMPILER_LAUNCHER "${HOBA_CCACHE_PROGRAM}")
  endif()
endif()

# Warnings are errors in the presets (CMAKE_COMPILE_WARNING_AS_ERROR), whose compilers we know.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual)

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # Visibility stays at its default: inline variables and the statics of inline functions must be
  # one object in the whole process, whichever shared object defines them first. Functions may be
  # inlined and called directly inside a library all the same (clang++ does so unasked). The
  # linker's -Bsymbolic-functions is left out: it would give one inline function two addresses.
  add_compile_options(-fno-semantic-interposition)
  # g++ 12 sees overlapping copies in std::string's operator+ where there are none (PR 105651).
  add_compile_options(-Wno-restrict)
endif()

add_link_options(-Wl,--as-needed)
if(HOBA_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all
    -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # The instrumentation hides initialisations from this warning; the other builds have it.
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
else()
  # A library that needs a symbol from a layer above it fails here and not at its user's. (The
  # sanitizers' own symbols come from the executable, so that build cannot ask for this.)
  add_link_options(-Wl,--no-undefined)
endif()
