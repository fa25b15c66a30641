# A damaged input fails with one line on stderr and exit status 1, and leaves no output file behind: a file
# with one byte after its pixel data, a file cut short inside its pixel data, and a PNG cut short.
include(${CMAKE_CURRENT_LIST_DIR}/PximgSteps.cmake)

function(expect_one_line_failure input output)
  execute_process(COMMAND ${PXIMG} convert ${input} ${output} RESULT_VARIABLE status ERROR_VARIABLE err)
  string(REGEX MATCHALL "\n" newlines "${err}")
  list(LENGTH newlines lines)
  if(NOT status EQUAL 1 OR NOT lines EQUAL 1 OR NOT err MATCHES "^pximg: ")
    message(FATAL_ERROR "convert ${input}: status ${status}, stderr:\n${err}")
  endif()
  get_filename_component(dir ${output} DIRECTORY)
  file(GLOB left ${dir}/out*)
  if(left)
    message(FATAL_ERROR "convert ${input} left ${left}")
  endif()
endfunction()

file(COPY ${DEMO}/frame-short.pxi DESTINATION ${WORK})
file(APPEND ${WORK}/frame-short.pxi "x")
expect_one_line_failure(${WORK}/frame-short.pxi ${WORK}/out.png)

# Writes the first `bytes` bytes of `input` to `output`.
function(cut_file input output bytes)
  file(READ ${input} head LIMIT ${bytes} HEX)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "\\\\x\\1" escaped "${head}")
  file(WRITE ${output} "")
  execute_process(COMMAND printf "${escaped}" OUTPUT_FILE ${output})
  file(SIZE ${output} size)
  if(NOT size EQUAL bytes)
    message(FATAL_ERROR "could not make ${output} (${size} bytes)")
  endif()
endfunction()

# The first 2000 bytes of a file whose header promises 1024 x 768 pixels.
cut_file(${DEMO}/frame-short.pxi ${WORK}/cut.pxi 2000)
expect_one_line_failure(${WORK}/cut.pxi ${WORK}/out.pxi)

# A PNG cut short: the codec's own complaint ("libpng error: ...") stays off the terminal.
cut_file(${DEMO}/frame-16bit.png ${WORK}/cut.png 2000)
expect_one_line_failure(${WORK}/cut.png ${WORK}/out.pxi)
