# CAMCLOCK_SANITIZE: empty, "asan-ubsan" or "tsan". Everything of this build tree is instrumented alike, since a
# sanitizer sees only what was compiled with it.
add_library(camclock_sanitizers INTERFACE)
if(CAMCLOCK_SANITIZE STREQUAL "asan-ubsan")
  set(camclock_sanitize_flags -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
elseif(CAMCLOCK_SANITIZE STREQUAL "tsan")
  set(camclock_sanitize_flags -fsanitize=thread -fno-omit-frame-pointer)
elseif(CAMCLOCK_SANITIZE)
  message(FATAL_ERROR "CAMCLOCK_SANITIZE is \"${CAMCLOCK_SANITIZE}\"; it may be empty, asan-ubsan or tsan")
endif()
if(CAMCLOCK_SANITIZE)
  target_compile_options(camclock_sanitizers INTERFACE ${camclock_sanitize_flags})
  target_link_options(camclock_sanitizers INTERFACE ${camclock_sanitize_flags})
endif()
