# pximg cut, pyramid and roi on the demo frame: sizes, pixels that must agree between commands, the files
# each command promises.
include(${CMAKE_CURRENT_LIST_DIR}/PximgSteps.cmake)

set(frame ${DEMO}/frame-short.pxi)

# A cut holds the pixels of the region it was cut from.
pximg(cut ${frame} ${WORK}/cut.pxi 100 50 301 203)
pximg(info ${WORK}/cut.pxi)
expect_output("stored type +SHORT \\(3\\).*size +301 x 203.*origin +\\(100, 50\\)")
stats_of(region ${frame} --region 100 50 401 253 --bins 8)
stats_of(cut ${WORK}/cut.pxi --bins 8)
if(NOT region STREQUAL cut)
  message(FATAL_ERROR "cut and region statistics differ:\n${region}\n---\n${cut}")
endif()
# Into another type, and as PNG.
pximg(cut ${frame} ${WORK}/cut-float.pxi 0 0 1024 768 --type float)
pximg(info ${WORK}/cut-float.pxi)
expect_output("stored type +FLOAT \\(6\\).*size +1024 x 768")
pximg(cut ${frame} ${WORK}/cut.png 1 2 3 4)
pximg(stats ${WORK}/cut.png --bins 0)
expect_output("count +12\n")

# A pyramid of the 1024 x 768 frame: ten levels down to 2 x 2, each as PNG and as float pxImage file.
pximg(pyramid ${frame} ${WORK}/pyramid)
expect_output("level 0  1024 x 768.*level 1  512 x 384.*level 8  4 x 3.*level 9  2 x 2")
foreach(level RANGE 9)
  foreach(ext png pxi)
    if(NOT EXISTS ${WORK}/pyramid/level-${level}.${ext})
      message(FATAL_ERROR "level-${level}.${ext} missing")
    endif()
  endforeach()
endforeach()
pximg(info ${WORK}/pyramid/level-3.pxi)
expect_output("stored type +FLOAT \\(6\\).*size +128 x 96")
pximg(pyramid ${frame} ${WORK}/pyramid3 --levels 3)
file(GLOB written ${WORK}/pyramid3/*)
list(LENGTH written count)
if(NOT count EQUAL 6)
  message(FATAL_ERROR "--levels 3 wrote ${count} files")
endif()

# The region of the frame, and the region written out with its size.
pximg(roi ${frame})
expect_output("^region  columns [0-9]+\\.\\.[0-9]+, rows [0-9]+\\.\\.[0-9]+ \\([0-9]+ x [0-9]+\\)\n$")
string(REGEX MATCH "\\(([0-9]+) x ([0-9]+)\\)" size "${PXIMG_OUTPUT}")
set(size "${CMAKE_MATCH_1} x ${CMAKE_MATCH_2}")
pximg(roi ${frame} --out ${WORK}/roi.pxi)
pximg(info ${WORK}/roi.pxi)
expect_output("stored type +SHORT \\(3\\).*size +${size}")
pximg(roi ${frame} --out ${WORK}/roi.png)
if(NOT EXISTS ${WORK}/roi.png)
  message(FATAL_ERROR "roi.png missing")
endif()
# A dark corner of the frame has no textured region.
pximg(cut ${frame} ${WORK}/dark.pxi 0 700 200 60)
pximg(roi ${WORK}/dark.pxi)
expect_output("^no textured region found\n$")
