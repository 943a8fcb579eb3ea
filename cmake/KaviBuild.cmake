# Compiler settings for everything in this tree.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo)
endif()

# All programs and libraries side by side, so that a build tree runs as it stands.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion
                    -Wformat=2 -fno-omit-frame-pointer)
# GCC 12 takes the insertion before a temporary string, once inlined, for a copy onto itself.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  add_compile_options($<$<CONFIG:Release>:-Wno-restrict>)
endif()
if(KAVI_WERROR)
  add_compile_options(-Werror)
endif()
if(KAVI_SANITIZE)
  add_compile_options(-fsanitize=${KAVI_SANITIZE} -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${KAVI_SANITIZE})
endif()
# The code under test is instrumented too: the fuzzer follows what it covers.
if(KAVI_BUILD_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
  add_link_options(-fsanitize=fuzzer-no-link)
endif()

find_program(CCACHE ccache)
if(CCACHE)
  set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()

# Includes are written from the top of the tree: "library/platform/api.h".
include_directories(${PROJECT_SOURCE_DIR})
