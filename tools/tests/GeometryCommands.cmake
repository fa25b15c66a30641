# pximg warp, undistort, distort and deinterlace on the demo frame, checked through properties that hold
# whatever the frame's pixels are: the identity warp and a zero distortion keep the pixels, a whole-pixel
# shift there and back keeps the inner part, the fields of a frame hold half its rows each.
include(${CMAKE_CURRENT_LIST_DIR}/PximgSteps.cmake)

set(frame ${DEMO}/frame-float.pxi)

stats_of(original ${frame} --bins 8)

# The identity affine map reproduces the frame (its values are whole numbers, so even the clamped last
# column and row are exact); nothing maps outside.
pximg(warp ${frame} ${WORK}/identity.pxi --affine 0 0 0 0 0 0)
expect_output("^0 of 786432 pixels map outside the source \\(marked 3.4028235e38\\)\n$")
stats_of(identity ${WORK}/identity.pxi --bins 8)
expect_equal("${original}" "${identity}" "frame and its identity warp")

# A whole-pixel shift keeps the type; shifting back restores everything but the uncovered band.
pximg(warp ${DEMO}/frame-short.pxi ${WORK}/shifted.pxi --shift 5 -3)
expect_output("shifted by \\(5, -3\\) pixels")
pximg(info ${WORK}/shifted.pxi)
expect_output("stored type +SHORT \\(3\\)")
pximg(warp ${WORK}/shifted.pxi ${WORK}/back.pxi --shift -5 3)
stats_of(inner ${DEMO}/frame-short.pxi --region 5 0 1024 765 --bins 8)
stats_of(innerBack ${WORK}/back.pxi --region 5 0 1024 765 --bins 8)
expect_equal("${inner}" "${innerBack}" "inner part after a shift there and back")

# A fractional shift marks the uncovered pixels in our format and writes them as 0 in a PNG.
pximg(warp ${DEMO}/preview-frame.png ${WORK}/half.pxi --shift 0.5 0 --scale 4)
expect_output("^1536 of 786432 pixels map outside the source \\(marked 3.4028235e38\\)\n$")
pximg(warp ${DEMO}/preview-frame.png ${WORK}/half.png --shift 0.5 0 --scale 4)
expect_output("written as 0")
pximg(stats ${WORK}/half.png --bins 0)
expect_output("count +786432\n")

# Zero distortion reproduces all but the last column and row; k = 0 changes nothing.
pximg(distort ${frame} ${WORK}/distorted.pxi)
expect_output("distortion centre \\(512, 384\\), 1 x 1 samples per pixel")
stats_of(inside ${frame} --region 0 0 1023 767 --bins 8)
stats_of(insideDistorted ${WORK}/distorted.pxi --region 0 0 1023 767 --bins 8)
expect_equal("${inside}" "${insideDistorted}" "frame and its zero distortion")
pximg(undistort ${frame} ${WORK}/undistorted.pxi --k 0)
expect_output("valid region: columns 0..1023, rows 0..767")
stats_of(same ${WORK}/undistorted.pxi --bins 8)
expect_equal("${original}" "${same}" "frame and its undistortion with k = 0")

# Barrel correction narrows the valid region on every side.
pximg(undistort ${DEMO}/frame-short.pxi ${WORK}/barrel.pxi --k -3e-7 --center 512 384)
expect_output("valid region: columns 63..959, rows 48..719")

# The two fields: half the rows each; the even field alone with '-'.
pximg(deinterlace ${DEMO}/frame-short.pxi ${WORK}/even.pxi ${WORK}/odd.png)
expect_output("even field 1024 x 384, odd field 1024 x 384")
pximg(stats ${WORK}/odd.png --bins 0)
expect_output("region +columns \\[0, 1024\\), rows \\[0, 384\\) ")
pximg(deinterlace ${DEMO}/frame-short.pxi ${WORK}/even-only.pxi -)
expect_same_file(${WORK}/even.pxi ${WORK}/even-only.pxi)
if(EXISTS ${WORK}/-)
  message(FATAL_ERROR "'-' was written as a file")
endif()
