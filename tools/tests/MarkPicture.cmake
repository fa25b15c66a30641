# pximg mark on the demo frame: points from a text file and from a CSV file, ellipses, the magnified
# cut-outs, and the written pixels read back with `pximg stats` and `pximg info`.
include(${CMAKE_CURRENT_LIST_DIR}/PximgSteps.cmake)

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
set(frame ${DEMO}/frame-short.pxi)

# The mean of a rectangle printed by `pximg stats`.
function(mean_at out image x0 y0 x1 y1)
  pximg(stats ${image} --region ${x0} ${y0} ${x1} ${y1} --bins 0)
  string(REGEX MATCH "mean +([-0-9.e+]+)" m "${PXIMG_OUTPUT}")
  set(${out} ${CMAKE_MATCH_1} PARENT_SCOPE)
endfunction()

function(expect_value image x y value)
  math(EXPR x1 "${x} + 1")
  math(EXPR y1 "${y} + 1")
  mean_at(m ${image} ${x} ${y} ${x1} ${y1})
  if(NOT m EQUAL value)
    message(FATAL_ERROR "${image}: pixel (${x}, ${y}) is ${m}, expected ${value}")
  endif()
endfunction()

file(WRITE ${WORK}/points.txt "# x y\n100 200\n\n300.4 50.6\n")
file(WRITE ${WORK}/points.csv "id,Y,X\n1,400,500\n2,10.2,20.7\n")

# Crosses of size 5 (arms of 2) in colour 200: the centres and the arm ends carry the colour.
pximg(mark ${frame} ${WORK}/marked.png --points ${WORK}/points.txt --points ${WORK}/points.csv --size 5
  --color 200 --ellipse 546 599 78 78 0)
expect_output("marked 4 points and 1 ellipses: .*marked.png \\(1024 x 768\\)")
expect_value(${WORK}/marked.png 100 200 200)
expect_value(${WORK}/marked.png 102 200 200)
expect_value(${WORK}/marked.png 100 198 200)
expect_value(${WORK}/marked.png 300 51 200)
expect_value(${WORK}/marked.png 500 400 200)
expect_value(${WORK}/marked.png 21 10 200)
# The ellipse is one pixel wide: the end of its a axis is marked.
expect_value(${WORK}/marked.png 624 599 200)

# Our format holds the same picture as UBYTE.
pximg(mark ${frame} ${WORK}/marked.pxi --points ${WORK}/points.txt --points ${WORK}/points.csv --size 5
  --color 200 --ellipse 546 599 78 78 0)
pximg(info ${WORK}/marked.pxi)
expect_output("stored type +UBYTE.*size +1024 x 768")
pximg(stats ${WORK}/marked.png --bins 0)
set(png "${PXIMG_OUTPUT}")
pximg(stats ${WORK}/marked.pxi --bins 0)
string(REGEX REPLACE "^.*(count.*)$" "\\1" a "${png}")
string(REGEX REPLACE "^.*(count.*)$" "\\1" b "${PXIMG_OUTPUT}")
if(NOT a STREQUAL b)
  message(FATAL_ERROR "PNG and pxImage pictures differ:\n${a}\n---\n${b}")
endif()

# A magnified cut-out around one point: columns 4..6 and rows 6..8 magnified 3 times, the point at (5, 7).
file(WRITE ${WORK}/one.txt "5.2 7.9\n")
pximg(mark ${frame} ${WORK}/one.png --points ${WORK}/one.txt --magnify 3 --size 1 --color 255)
expect_output("\\(9 x 9\\)")
expect_value(${WORK}/one.png 5 7 255)

# A magnified cut-out around an ellipse: 4 r m square, r = truncate(a + 0.5).
pximg(mark ${frame} ${WORK}/ellipse.png --ellipse 974 532 54.6 54 0 --magnify 2)
expect_output("\\(440 x 440\\)")
