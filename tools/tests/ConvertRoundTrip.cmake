# Our format -> PNG, TIFF, PGM -> our format gives the same file: 16-bit pixels survive unchanged and the
# header carries the defaults either way. A FLOAT image survives a float TIFF; --type and --transform
# convert on the way.
include(${CMAKE_CURRENT_LIST_DIR}/PximgSteps.cmake)

foreach(ext png tif tiff pgm)
  pximg(convert ${DEMO}/frame-short.pxi ${WORK}/frame.${ext})
  pximg(convert ${WORK}/frame.${ext} ${WORK}/back-${ext}.pxi)
  expect_same_file(${DEMO}/frame-short.pxi ${WORK}/back-${ext}.pxi)
endforeach()

pximg(convert ${DEMO}/frame-float.pxi ${WORK}/float.tif)
pximg(convert ${WORK}/float.tif ${WORK}/back-float.pxi)
expect_same_file(${DEMO}/frame-float.pxi ${WORK}/back-float.pxi)

# The FLOAT frame holds the SHORT frame's values: converting it to SHORT gives the SHORT frame again.
pximg(convert ${DEMO}/frame-float.pxi ${WORK}/short-from-float.pxi --type short)
expect_same_file(${DEMO}/frame-short.pxi ${WORK}/short-from-float.pxi)

# The scaled transform to FLOAT and back returns the 16-bit values.
pximg(convert ${DEMO}/frame-short.pxi ${WORK}/scaled.pxi --type float --transform)
pximg(info ${WORK}/scaled.pxi)
expect_output("stored type +FLOAT \\(6\\)")
pximg(convert ${WORK}/scaled.pxi ${WORK}/unscaled.pxi --type 3 --transform)
expect_same_file(${DEMO}/frame-short.pxi ${WORK}/unscaled.pxi)

# An 8-bit PNG comes in as UBYTE.
pximg(convert ${DEMO}/frame-short.pxi ${WORK}/small.pxi --type ubyte)
pximg(convert ${WORK}/small.pxi ${WORK}/small.png)
pximg(convert ${WORK}/small.png ${WORK}/small-back.pxi)
expect_same_file(${WORK}/small.pxi ${WORK}/small-back.pxi)
pximg(info ${WORK}/small-back.pxi)
expect_output("stored type +UBYTE \\(2\\)")

# A path that is not ASCII reaches the library as UTF-16 and back.
file(MAKE_DIRECTORY "${WORK}/Bilder-äöü")
pximg(convert ${DEMO}/frame-short.pxi "${WORK}/Bilder-äöü/Aufnahme-µ.pxi")
pximg(info "${WORK}/Bilder-äöü/Aufnahme-µ.pxi")
expect_output("Aufnahme-µ.pxi")
expect_same_file(${DEMO}/frame-short.pxi "${WORK}/Bilder-äöü/Aufnahme-µ.pxi")
