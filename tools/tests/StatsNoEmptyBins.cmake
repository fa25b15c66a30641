# 256 bins on 8-bit data of 108 values (0..107): one bin per value and none of them empty (no comb).
include(${CMAKE_CURRENT_LIST_DIR}/PximgSteps.cmake)
pximg(stats ${IMG}/camera.png --region 0 0 16 48 --bins 256)
string(REGEX REPLACE "^.*\nhistogram[^\n]*\n" "" bars "${PXIMG_OUTPUT}")
string(REGEX MATCHALL "\n" lines "${bars}")
list(LENGTH lines count)
if(NOT count EQUAL 108 OR bars MATCHES " 0\n")
  message(FATAL_ERROR "expected 108 bins, none empty:\n${PXIMG_OUTPUT}")
endif()
