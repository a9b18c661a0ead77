# Reads the export table of DLL and fails unless it holds what the public headers under HEADERS declare with MACRO, all
# of it in SCOPE, and nothing else.
cmake_minimum_required(VERSION 3.22)
include("${CMAKE_CURRENT_LIST_DIR}/../package/PublicNames.cmake")
file(GLOB_RECURSE headers "${HEADERS}/*.h")
public_names(public_names ${MACRO} ${headers})
list(JOIN public_names "|" any_public_name)

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
  if(name MATCHES "^(vtable for |typeinfo for |typeinfo name for )?${SCOPE}::(${any_public_name})")
    list(APPEND seen "${name}")
  else()
    list(APPEND strangers "${name}")
  endif()
endforeach()

set(missing "")
foreach(name IN LISTS public_names)
  set(found ${seen})
  list(FILTER found INCLUDE REGEX "^([a-z ]+ for )?${SCOPE}::(${name})")
  if(NOT found)
    list(APPEND missing "${name}")
  endif()
endforeach()
if(missing)
  message(FATAL_ERROR "not exported: ${missing}")
endif()
if(strangers)
  string(REPLACE ";" "\n  " strangers "${strangers}")
  message(FATAL_ERROR "exported, but no part of anything public:\n  ${strangers}")
endif()
list(LENGTH lines count)
message(STATUS "${count} exports of ${public_names}")
