# `filter min --range` with a range image that cannot be written fails with one line on stderr and leaves
# no minimum image behind either.
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
execute_process(COMMAND ${PXIMG} filter min --range ${WORK}/no-dir/range.pxi ${DEMO}/frame-short.pxi
                        ${WORK}/min.pxi RESULT_VARIABLE status ERROR_VARIABLE err)
if(NOT status EQUAL 1 OR NOT err MATCHES "^pximg: .*range.pxi: No such file or directory\n$")
  message(FATAL_ERROR "filter min --range: status ${status}, stderr:\n${err}")
endif()
file(GLOB left ${WORK}/*)
if(left)
  message(FATAL_ERROR "filter min --range left ${left}")
endif()
