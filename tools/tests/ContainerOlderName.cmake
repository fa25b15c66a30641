# `pximg container read` on a grab of type 23 whose file of image 4 exists only under its older name: one
# warning naming both names, the listing in aligned columns; with that file gone as well, one error line
# naming both names. Variables: PXIMG (the program), WORK (a scratch directory).
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
set(grab --grab-type 23 --tile 3 --set 5 6 7)
execute_process(COMMAND ${PXIMG} container write ${WORK} ${grab} --width 96 --height 64
  RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "container write: exit status ${status}\n${out}${err}")
endif()
file(RENAME ${WORK}/T00003_PRJ_00006_1.pxi ${WORK}/T00003_PRJ_00000_1.pxi)

execute_process(COMMAND ${PXIMG} container read ${WORK} ${grab}
  RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT status EQUAL 0 OR NOT err STREQUAL
   "pximg: warning: T00003_PRJ_00006_1.pxi not found; reading the older name T00003_PRJ_00000_1.pxi\n")
  message(FATAL_ERROR "container read: exit status ${status}\nstdout:\n${out}\nstderr:\n${err}")
endif()
# Every image line ends its file size in the same column.
string(REGEX MATCHALL "[^\n]* bytes" sizes "${out}")
list(LENGTH sizes count)
if(NOT count EQUAL 9)
  message(FATAL_ERROR "expected 9 image lines:\n${out}")
endif()
foreach(line IN LISTS sizes)
  string(LENGTH "${line}" length)
  list(APPEND lengths ${length})
endforeach()
list(REMOVE_DUPLICATES lengths)
list(LENGTH lengths distinct)
if(NOT distinct EQUAL 1)
  message(FATAL_ERROR "the listing's columns do not line up:\n${out}")
endif()

file(REMOVE ${WORK}/T00003_PRJ_00000_1.pxi)
execute_process(COMMAND ${PXIMG} container read ${WORK} ${grab}
  RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT status EQUAL 1 OR NOT out STREQUAL "" OR NOT err MATCHES
   "^pximg: [^\n]*: image 4 of the grab is missing: neither T00003_PRJ_00006_1.pxi nor its older name T00003_PRJ_00000_1.pxi exists\n$")
  message(FATAL_ERROR "container read of a missing file: exit status ${status}\nstdout:\n${out}\nstderr:\n${err}")
endif()
