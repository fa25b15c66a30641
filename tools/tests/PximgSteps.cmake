# Helpers of the pximg scenarios: run pximg and stop on failure; compare two files byte for byte, the output
# with a pattern, the statistics of two images.
function(pximg)
  execute_process(COMMAND ${PXIMG} ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "pximg ${ARGN} failed (${status}):\n${out}${err}")
  endif()
  set(PXIMG_OUTPUT "${out}" PARENT_SCOPE)
endfunction()

function(expect_same_file a b)
  execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${a} ${b} RESULT_VARIABLE differ)
  if(NOT differ EQUAL 0)
    message(FATAL_ERROR "${a} and ${b} differ")
  endif()
endfunction()

function(expect_output regex)
  if(NOT PXIMG_OUTPUT MATCHES "${regex}")
    message(FATAL_ERROR "output does not match '${regex}':\n${PXIMG_OUTPUT}")
  endif()
endfunction()

# The lines of `pximg stats` from "count" on (counts, range, mean, histogram) for the given arguments.
function(stats_of out)
  pximg(stats ${ARGN})
  string(REGEX REPLACE "^.*(count.*)$" "\\1" body "${PXIMG_OUTPUT}")
  set(${out} "${body}" PARENT_SCOPE)
endfunction()

function(expect_equal a b what)
  if(NOT a STREQUAL b)
    message(FATAL_ERROR "${what} differ:\n${a}\n---\n${b}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
