# What a delivered build guards itself with: addresses that are not known beforehand, tables that can't be written to,
# checks of stacks and of the library's copies.
option(VOREL_HARDENED "Build with the guards of a delivered build" OFF)
if(VOREL_HARDENED)
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
  add_compile_options(-fstack-protector-strong -fstack-clash-protection -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  add_link_options($<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-pie> -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
endif()
