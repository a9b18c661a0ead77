# A program built from pkg-config's answers alone links against the package under PREFIX and runs.
cmake_minimum_required(VERSION 3.22)
find_program(pkg_config NAMES pkg-config pkgconf REQUIRED)
set(ENV{PKG_CONFIG_LIBDIR} "${PREFIX}/${LIBDIR}/pkgconfig")  # and nowhere else

execute_process(COMMAND "${pkg_config}" --modversion camclock
  OUTPUT_VARIABLE version OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
if(NOT version STREQUAL VERSION)
  message(FATAL_ERROR "pkg-config gives version \"${version}\" instead of ${VERSION}")
endif()

execute_process(COMMAND "${pkg_config}" --cflags --libs camclock
  OUTPUT_VARIABLE answer OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(answer UNIX_COMMAND "${answer}")
separate_arguments(flags UNIX_COMMAND "${FLAGS}")
execute_process(
  COMMAND "${CXX}" -std=c++17 ${flags} "${STRANGER}" -o "${OUTPUT}/by-pkg-config" ${answer}
  COMMAND_ERROR_IS_FATAL ANY)

set(ENV{LD_LIBRARY_PATH} "${PREFIX}/${LIBDIR}")
execute_process(COMMAND "${OUTPUT}/by-pkg-config" OUTPUT_VARIABLE printed COMMAND_ERROR_IS_FATAL ANY)
if(NOT printed STREQUAL "10000 ms\n")
  message(FATAL_ERROR "the program printed \"${printed}\"")
endif()
