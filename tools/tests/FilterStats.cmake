# pximg filter and pximg stats on the demo frame: each filter is checked through a property that holds
# whatever the frame's pixels are (a reflected image keeps the original inside its border, a 1-pixel box is
# a copy, negating twice gives the input back, erosion <= mask <= dilation, min <= value <= max), and the
# statistics are compared between commands that must agree.
include(${CMAKE_CURRENT_LIST_DIR}/PximgSteps.cmake)

set(frame ${DEMO}/frame-float.pxi)

# The mean printed by `pximg stats`.
function(mean_of out)
  pximg(stats ${ARGN} --bins 0)
  string(REGEX MATCH "mean +([-0-9.e+]+)" m "${PXIMG_OUTPUT}")
  set(${out} ${CMAKE_MATCH_1} PARENT_SCOPE)
endfunction()

function(expect_less a b what)
  if(NOT a LESS b)
    message(FATAL_ERROR "${what}: expected ${a} < ${b}")
  endif()
endfunction()

stats_of(original ${frame} --bins 8)

# Reflection in every mode: the image grows by twice the fill and keeps the original inside.
foreach(mode mirror wrap-shared replicate point-mirror zero wrap)
  pximg(filter reflect --fill 6 --mode ${mode} ${frame} ${WORK}/reflect-${mode}.pxi)
  pximg(info ${WORK}/reflect-${mode}.pxi)
  expect_output("size +1036 x 780")
  if(NOT mode STREQUAL "wrap-shared") # that mode also averages the first and last pixel of every row
    stats_of(inner ${WORK}/reflect-${mode}.pxi --region 6 6 1030 774 --bins 8)
    expect_equal("${original}" "${inner}" "reflect ${mode}: frame and inside of the reflected image")
  endif()
endforeach()
pximg(stats ${WORK}/reflect-zero.pxi --region 0 0 1036 6 --bins 0)
expect_output("count +6216\nmean +0\nstd dev +0\n")

# A 1-pixel box average is a copy; box sums of 3 are nine times the average of 3 inside the image.
pximg(filter box --window 1 ${frame} ${WORK}/box1.pxi)
stats_of(box1 ${WORK}/box1.pxi --bins 8)
expect_equal("${original}" "${box1}" "frame and its 1-pixel box average")

# Negating twice gives the input back.
pximg(filter negate ${frame} ${WORK}/negated.pxi)
pximg(filter negate ${WORK}/negated.pxi ${WORK}/negated-twice.pxi)
stats_of(twice ${WORK}/negated-twice.pxi --bins 8)
expect_equal("${original}" "${twice}" "frame and its double negation")

# Windowed minimum <= frame <= windowed maximum, also for the SHORT minimum with its range.
pximg(filter min --window 5 ${frame} ${WORK}/min.pxi)
pximg(filter max --window 5 ${frame} ${WORK}/max.pxi)
pximg(filter min --window 5 --range ${WORK}/range.png ${DEMO}/frame-short.pxi ${WORK}/min-short.png)
mean_of(m_min ${WORK}/min.pxi)
mean_of(m_frame ${frame})
mean_of(m_max ${WORK}/max.pxi)
mean_of(m_min_short ${WORK}/min-short.png)
expect_less(${m_min} ${m_frame} "windowed minimum")
expect_less(${m_frame} ${m_max} "windowed maximum")
expect_equal("${m_min}" "${m_min_short}" "float and short windowed minimum")

# Threshold masks and morphology: erosion <= mask <= dilation; radius 0 copies the mask.
pximg(filter threshold --level 5000 --set-value 255 ${DEMO}/frame-short.pxi ${WORK}/mask.png --type short)
pximg(filter dilate --radius 2 --set-value 255 ${WORK}/mask.png ${WORK}/dilated.png)
pximg(filter erode --radius 2 --set-value 255 ${WORK}/mask.png ${WORK}/eroded.png)
pximg(filter dilate --radius 0 --set-value 255 ${WORK}/mask.png ${WORK}/copy.png)
mean_of(m_mask ${WORK}/mask.png)
mean_of(m_dilated ${WORK}/dilated.png)
mean_of(m_eroded ${WORK}/eroded.png)
mean_of(m_copy ${WORK}/copy.png)
expect_less(${m_eroded} ${m_mask} "erosion")
expect_less(${m_mask} ${m_dilated} "dilation")
expect_equal("${m_mask}" "${m_copy}" "mask and its radius-0 dilation")
pximg(filter threshold --upper --level 5000 ${frame} ${WORK}/upper.pxi)
mean_of(m_upper ${WORK}/upper.pxi)
expect_less(${m_upper} ${m_frame} "upper threshold")

# Statistics: a histogram that counts every pixel, corners in either order, the vector length of (v, 0)
# is |v|, and the chart is a PNG file.
pximg(stats ${frame} --region 10 20 110 70 --bins 4 --plot ${WORK}/chart.png)
expect_output("region +columns \\[10, 110\\), rows \\[20, 70\\) \\(100 x 50\\)\ncount +5000\n")
# The counts end the lines after the "histogram" line.
string(REGEX REPLACE "^.*\nhistogram[^\n]*\n" "" bars "${PXIMG_OUTPUT}")
string(REGEX MATCHALL " [0-9]+\n" counts "${bars}")
set(total 0)
foreach(count ${counts})
  string(STRIP "${count}" count)
  math(EXPR total "${total} + ${count}")
endforeach()
expect_equal("${total}" "5000" "histogram total and count")
stats_of(swapped ${frame} --region 110 70 10 20 --bins 4)
stats_of(ordered ${frame} --region 10 20 110 70 --bins 4)
expect_equal("${ordered}" "${swapped}" "corners in either order")
file(READ ${WORK}/chart.png signature LIMIT 4 HEX)
expect_equal("${signature}" "89504e47" "chart file signature")

# The vector length of (v, 0) is |v|; the frame is not negative, so it measures as the frame itself.
pximg(filter threshold --upper --level 1e30 ${frame} ${WORK}/zero.pxi)
stats_of(length ${frame} --flow-y ${WORK}/zero.pxi --bins 8)
expect_equal("${original}" "${length}" "frame and vector length of (frame, 0)")

# Vector components differing in width, height and type at once are refused, naming both sizes.
execute_process(COMMAND ${PXIMG} stats ${DEMO}/frame-short.pxi --flow-y ${WORK}/reflect-zero.pxi --raw
  RESULT_VARIABLE status ERROR_VARIABLE err OUTPUT_QUIET)
if(NOT status EQUAL 1 OR NOT err MATCHES "^pximg: the images differ in size: [^\n]*frame-short.pxi is 1024 x 768, [^\n]*reflect-zero.pxi is 1036 x 780\n$")
  message(FATAL_ERROR "mismatched vector components: status ${status}, stderr ${err}")
endif()
