# Finds log4cpp and offers it as the imported target Log4cpp::Log4cpp.
include(FindPackageHandleStandardArgs)
find_path(Log4cpp_INCLUDE_DIR log4cpp/Category.hh)
find_library(Log4cpp_LIBRARY NAMES log4cpp)
mark_as_advanced(Log4cpp_INCLUDE_DIR Log4cpp_LIBRARY)
find_package_handle_standard_args(Log4cpp
  REQUIRED_VARS Log4cpp_LIBRARY Log4cpp_INCLUDE_DIR
  REASON_FAILURE_MESSAGE "on Debian and Ubuntu it is the package liblog4cpp5-dev")
if(Log4cpp_FOUND AND NOT TARGET Log4cpp::Log4cpp)
  # Global: whoever uses the project by add_subdirectory links it through camclock_static.
  add_library(Log4cpp::Log4cpp UNKNOWN IMPORTED GLOBAL)
  set_target_properties(Log4cpp::Log4cpp PROPERTIES
    IMPORTED_LOCATION "${Log4cpp_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${Log4cpp_INCLUDE_DIR}")
  if(WIN32)  # its headers include windows.h, which would define min and max and bring in the old winsock.h
    target_compile_definitions(Log4cpp::Log4cpp INTERFACE NOMINMAX WIN32_LEAN_AND_MEAN)
  endif()
endif()
