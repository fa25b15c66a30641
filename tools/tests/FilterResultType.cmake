# The type a filter writes: an 8- or 16-bit input's own when the result fits it, a refusal that names the
# scaling options when it does not, and --type ubyte the same in filter as in convert.
include(${CMAKE_CURRENT_LIST_DIR}/PximgSteps.cmake)
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})

pximg(filter box --window 5 ${IMG}/camera.png ${WORK}/box8.pxi)
pximg(info ${WORK}/box8.pxi)
expect_output("stored type +UBYTE")
pximg(filter max ${IMG}/camera16.png ${WORK}/max16.pxi)
pximg(info ${WORK}/max16.pxi)
expect_output("stored type +SHORT")

execute_process(COMMAND ${PXIMG} filter negate --float ${IMG}/camera16.png ${WORK}/neg.png
  RESULT_VARIABLE status ERROR_VARIABLE err OUTPUT_QUIET)
if(NOT status EQUAL 1 OR NOT err MATCHES "^pximg: the result holds -65280..255, outside 0..65535 of the input's type SHORT: add --stretch auto to scale it, or --type float \\(a .pxi output\\) to keep it\n$")
  message(FATAL_ERROR "negated 16-bit result: status ${status}, stderr ${err}")
endif()
pximg(filter negate --float --stretch auto ${IMG}/camera16.png ${WORK}/neg.png)
pximg(stats ${WORK}/neg.png --bins 0)
expect_output("range +0 .. 65535\n")

# --type ubyte keeps values in both commands (clipped with the same warning).
execute_process(COMMAND ${PXIMG} filter box --window 1 --type ubyte ${IMG}/camera16.png ${WORK}/f8.png
  RESULT_VARIABLE s1 ERROR_VARIABLE e1 OUTPUT_QUIET)
execute_process(COMMAND ${PXIMG} convert --type ubyte ${IMG}/camera16.png ${WORK}/c8.png
  RESULT_VARIABLE s2 ERROR_VARIABLE e2 OUTPUT_QUIET)
if(NOT s1 EQUAL 0 OR NOT s2 EQUAL 0 OR NOT e1 STREQUAL e2 OR NOT e1 MATCHES "^pximg: warning: [0-9]+ pixels \\([0-9.]+ %\\) lie outside 0..255 of UBYTE and were clipped")
  message(FATAL_ERROR "--type ubyte in filter and convert:\n${e1}\n${e2}")
endif()
expect_same_file(${WORK}/f8.png ${WORK}/c8.png)
