# Reads the #include lines of every room under ROOT and complains of each that the table does not allow.
cmake_minimum_required(VERSION 3.22)

# room(<folder> [MAY <folders>...] [LIBRARIES <prefixes>...]): what the files of a folder may include beside itself, the
# public headers and the standard library. LIBRARIES are the first parts of the paths of other people's headers.
set(rooms "")
macro(room folder)
  cmake_parse_arguments(room "" "" "MAY;LIBRARIES" ${ARGN})
  list(APPEND rooms "${folder}")
  set("may_${folder}" ${room_MAY})
  set("libraries_${folder}" ${room_LIBRARIES})
endmacro()

# ---- the library
room(util)
room(logging MAY util LIBRARIES log4cpp)
room(probe MAY util logging LIBRARIES log4cpp)
room(timing MAY util logging probe LIBRARIES log4cpp)
room(parsers MAY util)
room(queue MAY util)

# ---- what stands on its public headers
room(receiver LIBRARIES log4cpp)
room(sim)
room(bindings)

# ---- the program
room(apps/camclock/sources MAY receiver probe apps/camclock LIBRARIES gio gst fmt)
room(apps/camclock/views MAY receiver apps/camclock apps/camclock/sources LIBRARIES fmt nlohmann)
room(apps/camclock/commands
  MAY receiver logging probe apps/camclock apps/camclock/sources apps/camclock/views
  LIBRARIES CLI fmt log4cpp nlohmann)
room(apps/camclock MAY apps/camclock/commands LIBRARIES CLI fmt)  # main.cpp, and the vocabulary of failures

# Headers that belong to the platform, and the few files that may see them.
set(platform "^(sys/|unistd|windows|winsock2|ws2tcpip|arpa/|netinet/|netdb|fcntl|poll|pthread|semaphore|signal|malloc|io)")

set(complaints "")
set(seen 0)
foreach(room IN LISTS rooms)
  file(GLOB_RECURSE sources "${ROOT}/${room}/*.cpp" "${ROOT}/${room}/*.h")
  if(room STREQUAL "apps/camclock")
    file(GLOB sources "${ROOT}/${room}/*.cpp" "${ROOT}/${room}/*.h")
  endif()
  foreach(source IN LISTS sources)
    file(RELATIVE_PATH name "${ROOT}" "${source}")
    file(STRINGS "${source}" lines REGEX "^ *# *include")
    foreach(line IN LISTS lines)
      math(EXPR seen "${seen} + 1")
      string(REGEX REPLACE "^ *# *include *[\"<]([^\">]*)[\">].*$" "\\1" included "${line}")
      string(REGEX REPLACE "/[^/]*$" "" folder "${included}")
      string(REGEX REPLACE "/.*$" "" top "${included}")
      set(ours FALSE)
      if(line MATCHES "include *\"")
        set(ours TRUE)
      endif()
      if(ours AND NOT included MATCHES "/")
        string(APPEND complaints "  ${name} includes ${included}: name the room\n")
      elseif(ours)
        if(NOT folder STREQUAL room AND NOT folder IN_LIST "may_${room}")
          string(APPEND complaints "  ${name} includes ${included}\n")
        endif()
      elseif(included MATCHES "^camclock/" OR NOT included MATCHES "[/.]")
        # the public face, or a standard header
      elseif(NOT included MATCHES "${platform}" AND NOT top IN_LIST "libraries_${room}")
        string(APPEND complaints "  ${name} includes ${included}\n")
      endif()
    endforeach()
  endforeach()
endforeach()

# A public header includes its siblings and standard headers, which have neither a folder nor an ending. What belongs to
# the receiver may see the library's face, never the other way round.
file(GLOB_RECURSE sources "${ROOT}/include/camclock/*.h")
foreach(source IN LISTS sources)
  file(RELATIVE_PATH name "${ROOT}" "${source}")
  file(STRINGS "${source}" lines REGEX "^ *# *include")
  foreach(line IN LISTS lines)
    math(EXPR seen "${seen} + 1")
    set(sibling "camclock/[A-Za-z0-9]+\\.h")
    if(name MATCHES "camclock/(Receiver\\.h|receiver/)")
      set(sibling "camclock/(receiver/)?[A-Za-z0-9]+\\.h")
    endif()
    if(NOT line MATCHES "^ *# *include <(${sibling}|[a-z_]+)>")
      string(APPEND complaints "  ${name}: ${line}\n")
    endif()
  endforeach()
endforeach()

if(seen EQUAL 0)
  message(FATAL_ERROR "no #include line found under ${ROOT}")
endif()
if(complaints)
  message(FATAL_ERROR "includes that the rooms do not allow:\n${complaints}")
endif()
