# The warning set of this project, linked privately: users of the library never see it.
# CAMCLOCK_WERROR (on in our presets) turns warnings into errors.
add_library(camclock_warnings INTERFACE)
if(MSVC)
  target_compile_options(camclock_warnings INTERFACE /W4 $<$<BOOL:${CAMCLOCK_WERROR}>:/WX>)
  # MSVC would have functions of the C standard replaced by its own.
  target_compile_definitions(camclock_warnings INTERFACE _CRT_SECURE_NO_WARNINGS)
else()
  target_compile_options(camclock_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wnon-virtual-dtor
    $<$<BOOL:${CAMCLOCK_WERROR}>:-Werror>)
endif()
