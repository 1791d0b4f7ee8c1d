# A quick linker where there is one. Not mold: that of the distribution (1.10) begins the part that is made
# read-only after relocation with the thread-local data, at times on the page before its segment, and the loader
# refuses such a program.
find_program(VOREL_LLD ld.lld)
if(VOREL_LLD)
  add_link_options(-fuse-ld=lld)
endif()
find_program(VOREL_CCACHE ccache)
if(VOREL_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${VOREL_CCACHE})
endif()
