# One rule for type changes in convert: values are kept (8 -> 16 -> 8 gives the image back), --shift moves
# bits, --stretch maps a range onto the type's range, and clipping is warned about.
include(${CMAKE_CURRENT_LIST_DIR}/PximgSteps.cmake)

stats_of(camera ${IMG}/camera.png --bins 8)
pximg(convert ${IMG}/camera.png ${WORK}/a16.pxi --type short)
pximg(convert ${WORK}/a16.pxi ${WORK}/a8.png --type ubyte)
stats_of(back ${WORK}/a8.png --bins 8)
expect_equal("${camera}" "${back}" "8 -> 16 -> 8 bits and the original")

pximg(convert ${IMG}/camera16.png ${WORK}/shifted.png --type ubyte --shift -8)
stats_of(shifted ${WORK}/shifted.png --bins 8)
expect_equal("${camera}" "${shifted}" "16-bit data shifted to 8 bits and the 8-bit original")

pximg(convert ${IMG}/camera.png ${WORK}/stretched.png --type short --stretch auto)
pximg(stats ${WORK}/stretched.png --bins 0)
expect_output("range +0 .. 65535\n")

execute_process(COMMAND ${PXIMG} convert ${IMG}/camera.png ${WORK}/s.png --stretch 0:127
  RESULT_VARIABLE status ERROR_VARIABLE err OUTPUT_QUIET)
if(NOT status EQUAL 0 OR NOT err MATCHES "^pximg: warning: [0-9]+ pixels \\([0-9.]+ %\\) lie outside 0..255 of UBYTE and were clipped\n$")
  message(FATAL_ERROR "--stretch 0:127: status ${status}, stderr ${err}")
endif()
execute_process(COMMAND ${PXIMG} convert ${IMG}/camera.png ${WORK}/s.png --stretch 5
  RESULT_VARIABLE status ERROR_VARIABLE err OUTPUT_QUIET)
if(NOT status EQUAL 1 OR NOT err MATCHES "^pximg: --stretch takes auto or LO:HI with LO < HI \\(e.g. 0:4095\\), not '5'\n$")
  message(FATAL_ERROR "--stretch 5: status ${status}, stderr ${err}")
endif()
