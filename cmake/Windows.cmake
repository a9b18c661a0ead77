# What only a build for Windows needs; included before the first target.
enable_language(RC)

# A program finds the DLLs that lie beside it, so everything that runs goes into one folder.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")

# The compiler's own runtime, which our DLLs and their users share: exceptions, error categories and the memory of
# standard containers cross the boundary between them.
set(camclock_runtime_dlls "")
if(MINGW)
  foreach(dll IN ITEMS libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
    execute_process(COMMAND "${CMAKE_CXX_COMPILER}" -print-file-name=${dll}
      OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(NOT IS_ABSOLUTE "${path}")
      message(FATAL_ERROR "the compiler has no ${dll}: is it the variant with posix threads?")
    endif()
    list(APPEND camclock_runtime_dlls "${path}")
  endforeach()
  file(MAKE_DIRECTORY "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}")
  foreach(path IN LISTS camclock_runtime_dlls)
    get_filename_component(dll "${path}" NAME)
    if(NOT EXISTS "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${dll}")
      # Stripped: the C++ runtime comes with 20 MB of debug information.
      execute_process(COMMAND "${CMAKE_STRIP}" -o "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${dll}" "${path}"
        COMMAND_ERROR_IS_FATAL ANY)
    endif()
    install(FILES "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${dll}" DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT camclock)
  endforeach()
endif()

# camclock_windows_library(<target>): the DLL's name and its version resource.
function(camclock_windows_library target)
  set(camclock_rc_library ${target})
  configure_file("${PROJECT_SOURCE_DIR}/cmake/camclock.rc.in" ${target}.rc @ONLY)
  target_sources(${target} PRIVATE "${CMAKE_CURRENT_BINARY_DIR}/${target}.rc")
  set_target_properties(${target} PROPERTIES PREFIX "")  # camclock.dll; MinGW would name it libcamclock.dll
endfunction()
