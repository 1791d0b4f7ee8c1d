# VOREL_SANITIZE: empty, "address,undefined" or "thread".
set(VOREL_SANITIZE "" CACHE STRING "sanitizers to build with")
if(VOREL_SANITIZE)
  target_compile_options(vorel_options INTERFACE -fsanitize=${VOREL_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(vorel_options INTERFACE -fsanitize=${VOREL_SANITIZE})
endif()
