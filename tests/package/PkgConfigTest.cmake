# Programs built from pkg-config's answers alone link against the package under PREFIX and run.
cmake_minimum_required(VERSION 3.22)
find_program(pkg_config NAMES pkg-config pkgconf REQUIRED)
set(ENV{PKG_CONFIG_LIBDIR} "${PREFIX}/${LIBDIR}/pkgconfig")  # and nowhere else
set(ENV{LD_LIBRARY_PATH} "${PREFIX}/${LIBDIR}")

# check(<module> <source> <what the program prints>)
function(check module source expected)
  execute_process(COMMAND "${pkg_config}" --modversion ${module}
    OUTPUT_VARIABLE version OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  if(NOT version STREQUAL VERSION)
    message(FATAL_ERROR "pkg-config gives version \"${version}\" of ${module} instead of ${VERSION}")
  endif()

  execute_process(COMMAND "${pkg_config}" --cflags --libs ${module}
    OUTPUT_VARIABLE answer OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  separate_arguments(answer UNIX_COMMAND "${answer}")
  separate_arguments(flags UNIX_COMMAND "${FLAGS}")
  execute_process(
    COMMAND "${CXX}" -std=c++17 ${flags} "${source}" -o "${OUTPUT}/by-pkg-config-${module}" ${answer}
    COMMAND_ERROR_IS_FATAL ANY)

  execute_process(COMMAND "${OUTPUT}/by-pkg-config-${module}" OUTPUT_VARIABLE printed COMMAND_ERROR_IS_FATAL ANY)
  if(NOT printed STREQUAL expected)
    message(FATAL_ERROR "the program over ${module} printed \"${printed}\"")
  endif()
endfunction()

check(camclock "${SOURCES}/stranger/main.cpp" "10000 ms\n")
check(camclock-receiver "${SOURCES}/receiver/main.cpp" "1 packet, 8 bytes\n")
