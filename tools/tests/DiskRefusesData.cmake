# pximg writing to a disk that refuses the data: under a file-size limit of 1 KiB (bash's `ulimit -f 1`, with
# SIGXFSZ ignored so that a write past the limit fails instead of killing the program; the script has no
# semicolons, which CMake would take as list separators), and into /dev/full. The files here are small
# enough to sit in the stream buffer until they are closed, so only a checked close notices that the data
# never reached the disk: `convert` and `container write` must fail with the system's reason and leave no
# file, partial or truncated, behind.
# Variables: PXIMG (the program), WORK (a scratch directory).
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK}/source ${WORK}/limited)
# In a coverage build the profiling runtime also fails to write its counters under the limit, and says so on
# stderr when the program ends; those lines are not pximg's. The limited runs write their counters under
# a scratch prefix, so that the truncated files do not spoil the build's own.
macro(drop_coverage_noise)
  string(REGEX REPLACE "[^\n]*profiling[^\n]*[.]gcda[^\n]*\n" "" err "${err}")
endmacro()
set(limit bash -c "trap '' XFSZ && ulimit -f 1 && exec \"$0\" \"$@\"")

# A 32 x 32 grab written without the limit gives the input of the conversion.
execute_process(COMMAND ${PXIMG} container write ${WORK}/source --grab-type 2 --width 32 --height 32
  RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "container write without a limit: exit status ${status}\n${out}${err}")
endif()
file(GLOB sources ${WORK}/source/*.pxi)
list(GET sources 0 source)

# A plain SHORT copy is 512 + 2048 bytes.
set(ENV{GCOV_PREFIX} ${WORK}/coverage-under-limit)
execute_process(COMMAND ${limit} ${PXIMG} convert ${source} ${WORK}/limited/copy.pxi --encoding plain
  RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
drop_coverage_noise()
if(NOT status EQUAL 1 OR NOT err MATCHES
   "^pximg: [^\n]*copy.pxi: cannot write \\(file input/output failure: errno 27 \\(File too large\\)\\)\n$")
  message(FATAL_ERROR "convert under the limit: exit status ${status}\nstdout:\n${out}\nstderr:\n${err}")
endif()

execute_process(COMMAND ${limit} ${PXIMG} container write ${WORK}/limited --grab-type 2 --width 32 --height 32
  RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
drop_coverage_noise()
if(NOT status EQUAL 1 OR NOT err MATCHES
   "^pximg: [^\n]*limited: cannot write the grab \\(image container: image could not be written as SHORT12 or plain: [^\n]*\\)\n$")
  message(FATAL_ERROR "container write under the limit: exit status ${status}\nstdout:\n${out}\nstderr:\n${err}")
endif()

unset(ENV{GCOV_PREFIX})
file(GLOB left ${WORK}/limited/*)
if(left)
  message(FATAL_ERROR "files left behind under the limit: ${left}")
endif()

# The same conversion into /dev/full: the partial file that pximg writes first is a link to the device.
file(CREATE_LINK /dev/full ${WORK}/limited/full.pximg-partial.pxi SYMBOLIC)
execute_process(COMMAND ${PXIMG} convert ${source} ${WORK}/limited/full.pxi --encoding plain
  RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
drop_coverage_noise()
if(NOT status EQUAL 1 OR NOT err MATCHES
   "^pximg: [^\n]*full.pxi: cannot write \\(file input/output failure: errno 28 \\(No space left on device\\)\\)\n$")
  message(FATAL_ERROR "convert into /dev/full: exit status ${status}\nstdout:\n${out}\nstderr:\n${err}")
endif()
file(GLOB left ${WORK}/limited/*)
if(left OR NOT EXISTS /dev/full)
  message(FATAL_ERROR "files left behind after /dev/full: ${left}")
endif()
