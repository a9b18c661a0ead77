# Reads the export table of DLL and fails unless it holds members of every public class and nothing else.
cmake_minimum_required(VERSION 3.22)
set(public_classes
  TimeFilter TimeFilterInstance
  MediaPacketQueue
  Utilities)

execute_process(
  COMMAND "${OBJDUMP}" -p "${DLL}"
  COMMAND "${CXXFILT}"
  OUTPUT_VARIABLE headers RESULTS_VARIABLE results)
if(NOT results STREQUAL "0;0")
  message(FATAL_ERROR "objdump or c++filt failed on ${DLL}: ${results}")
endif()

string(REGEX MATCH "\\[Ordinal/Name Pointer\\] Table.*" table "${headers}")
string(REGEX REPLACE "\n\n.*" "" table "${table}")
string(REPLACE ";" "," table "${table}")
string(REPLACE "[" "(" table "${table}")  # CMake's lists do not split within brackets
string(REPLACE "]" ")" table "${table}")
string(REPLACE "\n" ";" lines "${table}")
list(REMOVE_AT lines 0)

set(seen "")
set(strangers "")
foreach(line IN LISTS lines)
  string(REGEX REPLACE "^[ \t]*\\([ 0-9]*\\) *(\\+base\\([ 0-9]*\\) *[0-9a-f]* *)?" "" name "${line}")
  if(name MATCHES "^(vtable for |typeinfo for |typeinfo name for )?camclock::([A-Za-z0-9]+)(::[~A-Za-z0-9_=]+(\\(abi:cxx11\\))?\\(.*\\)( const)?)?$")
    set(class "${CMAKE_MATCH_2}")
    if(class IN_LIST public_classes)
      list(APPEND seen "${class}")
      continue()
    endif()
  endif()
  list(APPEND strangers "${name}")
endforeach()

list(LENGTH lines count)
list(REMOVE_DUPLICATES seen)
set(missing ${public_classes})
list(REMOVE_ITEM missing ${seen} "")
if(missing)
  message(FATAL_ERROR "not exported: ${missing}")
endif()
if(strangers)
  string(REPLACE ";" "\n  " strangers "${strangers}")
  message(FATAL_ERROR "exported, but no part of a public class:\n  ${strangers}")
endif()
message(STATUS "${count} exports, all of ${seen}")
