# Builds log4cpp out of LOG4CPP_SOURCE_DIR, the unpacked source package, and offers it as Log4cpp::Log4cpp.
# For Windows, where no distribution has it ready. Tried with log4cpp 1.1.4 and MinGW-w64.
#
# Shared, always: were it linked statically into camclock and into the application, each would have categories of its
# own, and an appender that the application sets would never see the library's messages.
if(NOT EXISTS "${LOG4CPP_SOURCE_DIR}/include/log4cpp/Category.hh")
  message(FATAL_ERROR "LOG4CPP_SOURCE_DIR is \"${LOG4CPP_SOURCE_DIR}\", which holds no log4cpp; "
    "scripts/test-windows fetches its source")
endif()

function(camclock_add_log4cpp)
  set(BUILD_SHARED_LIBS ON)
  set(CMAKE_BUILD_TYPE Release)  # a debug build would carry another name
  set(CMAKE_EXPORT_COMPILE_COMMANDS OFF)
  set(CMAKE_CXX_CLANG_TIDY "")
  add_subdirectory("${LOG4CPP_SOURCE_DIR}" log4cpp EXCLUDE_FROM_ALL)
endfunction()
camclock_add_log4cpp()
add_library(Log4cpp::Log4cpp ALIAS log4cpp)

target_include_directories(log4cpp SYSTEM INTERFACE
  $<BUILD_INTERFACE:${LOG4CPP_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)

# It goes into the package beside the library (target camclock::log4cpp): an application that wants the library's
# messages sets its appenders in this very DLL.
install(TARGETS log4cpp EXPORT camclockTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT camclock
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT camclock
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT camclock)
install(DIRECTORY "${LOG4CPP_SOURCE_DIR}/include/log4cpp" DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT camclock
  FILES_MATCHING PATTERN "*.hh" PATTERN "*.h")
install(FILES "${LOG4CPP_SOURCE_DIR}/COPYING" DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/log4cpp COMPONENT camclock)

# Its headers include windows.h, which would define min and max and bring in the old winsock.h.
target_compile_definitions(log4cpp INTERFACE $<BUILD_INTERFACE:NOMINMAX> $<BUILD_INTERFACE:WIN32_LEAN_AND_MEAN>)
if(MINGW)
  set_target_properties(log4cpp PROPERTIES LINK_FLAGS "")  # it asks for an option that only MSVC's linker knows
  target_compile_options(log4cpp PRIVATE -w)
  # Its headers, left alone, define int64_t as a macro (which breaks <cstdint>) and, in the same breath, in_addr_t.
  target_compile_definitions(log4cpp PUBLIC LOG4CPP_HAVE_INT64_T PRIVATE in_addr_t=u_long)
  # WIN32 is predefined in GNU mode only; two of its sources ask for it.
  target_compile_definitions(log4cpp PRIVATE WIN32)
endif()
