# The folder of the backends that are built: linux or windows.
if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
  set(VOREL_PLATFORM linux)
else()
  message(FATAL_ERROR "There is no backend for ${CMAKE_SYSTEM_NAME} yet: Vorel System builds on Linux.")
endif()

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
pkg_check_modules(NSPR REQUIRED IMPORTED_TARGET nspr)
