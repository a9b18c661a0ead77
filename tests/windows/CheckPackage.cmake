# Packs camclock as WAY says (install or zip), then configures, builds and runs a consumer project that is given the
# resulting folder and nothing else.
#   WAY BUILD_DIR SOURCE_DIR SCRATCH_DIR CPACK GENERATOR TOOLCHAIN RUN (the emulator, a list)
cmake_minimum_required(VERSION 3.22)

# run(<what> <command>...): stops the test with the command's output when it fails.
function(run what)
  execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE output ERROR_VARIABLE output RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${what} failed (${result}):\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE "${SCRATCH_DIR}")
file(MAKE_DIRECTORY "${SCRATCH_DIR}")
if(WAY STREQUAL "install")
  set(package "${SCRATCH_DIR}/package")
  run("cmake --install" "${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${package}")
else()
  run("cpack" "${CPACK}" --config "${BUILD_DIR}/CPackConfig.cmake" -G ZIP -B "${SCRATCH_DIR}")
  file(GLOB archive "${SCRATCH_DIR}/*.zip")
  file(ARCHIVE_EXTRACT INPUT "${archive}" DESTINATION "${SCRATCH_DIR}/unpacked")
  get_filename_component(name "${archive}" NAME_WLE)
  set(package "${SCRATCH_DIR}/unpacked/${name}")
endif()

foreach(file IN ITEMS bin/camclock.dll bin/camclock_receiver.dll bin/liblog4cpp.dll
    include/camclock/TimeFilter.h include/camclock/Receiver.h include/log4cpp/Category.hh
    lib/libcamclock.dll.a lib/libcamclock_receiver.dll.a lib/cmake/camclock/camclockConfig.cmake
    share/doc/log4cpp/COPYING)
  if(NOT EXISTS "${package}/${file}")
    message(FATAL_ERROR "the package lacks ${file}")
  endif()
endforeach()

run("configuring the consumer" "${CMAKE_COMMAND}" -G "${GENERATOR}" -S "${SOURCE_DIR}" -B "${SCRATCH_DIR}/consumer"
  "-DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN}" "-DCMAKE_PREFIX_PATH=${package}" -DCMAKE_BUILD_TYPE=Debug)  # nothing inlined
run("building the consumer" "${CMAKE_COMMAND}" --build "${SCRATCH_DIR}/consumer")

set(ENV{WINEPATH} "${package}/bin")  # what PATH is on Windows
run("the consumer" ${RUN} "${SCRATCH_DIR}/consumer/consumer.exe")
string(REPLACE "\r\n" "\n" output "${output}")
string(FIND "${output}" ": Gate 3: TimeFilter::TimeFilter\n" message)
string(FIND "${output}" "shift: 2500000 ticks\n" shift)
string(FIND "${output}" "format: JPEG 90000 Hz\n" format)
if(message EQUAL -1 OR shift EQUAL -1 OR format EQUAL -1)
  message(FATAL_ERROR "the consumer printed:\n${output}")
endif()
