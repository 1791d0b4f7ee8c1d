# Warnings are errors, for every target of ours.
add_library(vorel_options INTERFACE)
target_compile_features(vorel_options INTERFACE cxx_std_20)
target_compile_options(vorel_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wconversion -Werror
  # Logs name source files as they stand in the tree, whatever machine built them.
  -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=
  -fvisibility=hidden -fvisibility-inlines-hidden)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # Interfaces have protected, non-virtual destructors on purpose; their classes are final or destroyed by Release.
  # Its -Wconversion is the wider one: changes of sign alone are no error for the other compiler.
  target_compile_options(vorel_options INTERFACE -Wno-delete-non-abstract-non-virtual-dtor -Wno-sign-conversion)
  # Who touches what a lock guards, holds it (nsLock.h).
  target_compile_options(vorel_options INTERFACE -Wthread-safety)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # At -O3 g++ 12 sees overlaps inside std::string that are not there (its bug 105651), and takes the lists of rooted
  # script values for dangling.
  target_compile_options(vorel_options INTERFACE -Wno-restrict -Wno-dangling-pointer)
endif()
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
