# Each component installs its own files and no others; without the receiver's, the receiver is not found.
cmake_minimum_required(VERSION 3.22)
set(scratch "${OUTPUT}/components")
file(REMOVE_RECURSE "${scratch}")
foreach(component IN ITEMS camclock receiver)
  execute_process(
    COMMAND "${CMAKE_COMMAND}" --install "${BUILD}" --component ${component} --prefix "${scratch}/${component}"
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(GLOB_RECURSE files RELATIVE "${scratch}/${component}" "${scratch}/${component}/*")
  set(files_${component} ${files})
endforeach()

foreach(file IN ITEMS include/camclock/TimeFilter.h ${LIBDIR}/libcamclock.so
    ${LIBDIR}/cmake/camclock/camclockConfig.cmake ${LIBDIR}/pkgconfig/camclock.pc)
  if(NOT file IN_LIST files_camclock)
    message(SEND_ERROR "component camclock lacks ${file}: ${files_camclock}")
  endif()
endforeach()
foreach(file IN ITEMS include/camclock/Receiver.h include/camclock/receiver/Format.h ${LIBDIR}/libcamclock_receiver.so
    ${LIBDIR}/cmake/camclock/camclockReceiverTargets.cmake ${LIBDIR}/pkgconfig/camclock-receiver.pc)
  if(NOT file IN_LIST files_receiver)
    message(SEND_ERROR "component receiver lacks ${file}: ${files_receiver}")
  endif()
endforeach()
set(both ${files_camclock})
list(REMOVE_ITEM both ${files_receiver})
if(NOT both STREQUAL files_camclock)
  message(SEND_ERROR "files of both components: ${files_camclock} and ${files_receiver}")
endif()
set(strangers ${files_camclock})
list(FILTER strangers INCLUDE REGEX "[Rr]eceiver")
if(strangers)
  message(SEND_ERROR "component camclock holds the receiver's ${strangers}")
endif()

execute_process(
  COMMAND "${CMAKE_COMMAND}" -S "${SOURCES}/receiver" -B "${scratch}/build" "-DCMAKE_CXX_COMPILER=${CXX}"
    "-DCMAKE_PREFIX_PATH=${scratch}/camclock"
  RESULT_VARIABLE result OUTPUT_QUIET ERROR_VARIABLE error)
if(result EQUAL 0 OR NOT error MATCHES "without its component receiver")
  message(SEND_ERROR "without its component the receiver is found all the same (${result}): ${error}")
endif()
