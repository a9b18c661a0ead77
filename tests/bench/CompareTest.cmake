# expect(<exit code> <output> <arguments>...): runs bench/compare; an output of "-" may be anything.
function(expect code output)
  execute_process(COMMAND "${PYTHON}" "${COMPARE}" ${ARGN}
    RESULT_VARIABLE result OUTPUT_VARIABLE printed ERROR_QUIET)
  if(NOT result EQUAL code)
    message(SEND_ERROR "compare ${ARGN}: exit code ${result} instead of ${code}\n${printed}")
  endif()
  if(NOT output STREQUAL "-" AND NOT printed STREQUAL output)
    message(SEND_ERROR "compare ${ARGN} printed\n${printed}instead of\n${output}")
  endif()
endfunction()

# 1,101 is more than 10 % above 1,000; 550 is just 10 % above 500; a peer's figure and a time do not count.
expect(1 "slower  post_row/threads:1: 1,000 -> 1,101 instructions (+10 %)
faster  get_time: 100 -> 50 instructions (-50 %)
1 slower by more than 10 %
" "${DATA}/before.md" "${DATA}/after.md")
expect(0 "0 slower by more than 10 %\n" "${DATA}/before.md" "${DATA}/before.md")
expect(2 "-" "${DATA}/before.md")
expect(2 "-" "${DATA}/before.md" "${DATA}/nothing.md")
expect(2 "-" "${DATA}/before.md" "${CMAKE_CURRENT_LIST_FILE}")
