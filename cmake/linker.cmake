# The fastest linker at hand; none of them changes the result.
find_program(VOREL_MOLD mold)
if(VOREL_MOLD)
  add_link_options(-fuse-ld=mold)
endif()
find_program(VOREL_CCACHE ccache)
if(VOREL_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${VOREL_CCACHE})
endif()
