# Test programs with GoogleTest.
#
# vorel_test(NAME SOURCES ... LIBS ...)  one program for one subject.
# vorel_test_folders(PREFIX LIBS ...)    one program for each folder below, of its *.cpp files and those in its folder
#                                        of this platform; support/ has what the programs share.
# vorel_threads(NAME...)                 test programs that run under ThreadSanitizer too.
find_package(GTest REQUIRED)
add_custom_target(thread_tests)

function(vorel_threads)
  foreach(name ${ARGN})
    set_property(TEST ${name} APPEND PROPERTY LABELS threads)
    add_dependencies(thread_tests ${name})
  endforeach()
endfunction()

function(vorel_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gtest GTest::gtest_main)
  target_compile_definitions(${name} PRIVATE VOREL_SOURCE_DIR="${CMAKE_SOURCE_DIR}" VOREL_BINARY_DIR="${CMAKE_BINARY_DIR}")
  add_test(NAME ${name} COMMAND ${name} --gtest_brief=1)
  set_tests_properties(${name} PROPERTIES TIMEOUT 300)
endfunction()

function(vorel_test_folders prefix)
  cmake_parse_arguments(ARG "" "" "LIBS" ${ARGN})
  file(GLOB folders CONFIGURE_DEPENDS LIST_DIRECTORIES true RELATIVE ${CMAKE_CURRENT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR}/*)
  list(REMOVE_ITEM folders support)
  foreach(folder ${folders})
    set(here ${CMAKE_CURRENT_SOURCE_DIR}/${folder})
    file(GLOB sources CONFIGURE_DEPENDS ${here}/*.cpp ${here}/${VOREL_PLATFORM}/*.cpp)
    if(sources)
      vorel_test(${prefix}_${folder} SOURCES ${sources} LIBS ${ARG_LIBS})
    endif()
  endforeach()
endfunction()
