# pximg as a new user meets it: real PNG files of every colour layout (written by make_images.py), the
# demo's files, wrong words and wrong values. Included from tools/CMakeLists.txt after pximg_test().
find_package(Python3 COMPONENTS Interpreter)
if(NOT Python3_Interpreter_FOUND)
  message(STATUS "pximg everyday tests skipped: no Python 3 to write their PNG files")
  return()
endif()
set(img ${PXIMG_TEST_WORK}/everyday)
set(out ${PXIMG_TEST_WORK}/everyday-out)
add_test(NAME pximg.EverydayImages
  COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/tests/make_images.py ${img} ${out})
set_tests_properties(pximg.EverydayImages PROPERTIES FIXTURES_SETUP pximgEveryday)
set(everydayTests "")
function(everyday name) # a function, so that the regular expressions keep their backslashes
  pximg_test(${name} ${ARGN})
  set(everydayTests ${everydayTests} pximg.${name} PARENT_SCOPE)
endfunction()
# A scenario of several steps in tools/tests/<Name>.cmake, with DEMO, IMG and WORK set.
macro(everyday_scenario name)
  add_test(NAME pximg.${name}
    COMMAND ${CMAKE_COMMAND} -DPXIMG=$<TARGET_FILE:pximg> -DDEMO=${demo} -DIMG=${img} -DWORK=${out}/${name}
            -P ${CMAKE_CURRENT_SOURCE_DIR}/tests/${name}.cmake)
  list(APPEND everydayTests pximg.${name})
endmacro()

# 1. Filters whose arithmetic runs in float write an 8-bit input's result as 8-bit.
foreach(op box min max reflect)
  everyday(FilterKeeps8Bit${op} ARGS filter ${op} ${img}/camera.png ${out}/${op}.png EXPECT_EXIT 0
    EXPECT_STDOUT "^wrote .*${op}.png" EXPECT_STDERR "^$")
endforeach()
everyday_scenario(FilterResultType)

# 2. info reports every file, the failures among them too, and exits 1 at the end.
everyday(InfoGoodBadGood ARGS info ${demo}/frame-short.pxi ${CMAKE_CURRENT_SOURCE_DIR}/CMakeLists.txt
  ${demo}/frame-float.pxi EXPECT_EXIT 1
  EXPECT_STDOUT "file +[^\n]*frame-short.pxi\n.*file +[^\n]*frame-float.pxi\n"
  EXPECT_STDERR "^pximg: [^\n]*CMakeLists.txt: not an image file \\(neither PNG, TIFF, PGM nor a pxImage file\\)\n$" EXPECT_STDERR_LINES 1)
everyday(InfoJsonGoodBadGood ARGS info --json ${demo}/frame-short.pxi ${PXIMG_TEST_WORK}/missing.pxi
  ${demo}/frame-float.pxi EXPECT_EXIT 1
  EXPECT_STDOUT "frame-short.pxi\",\n.*\n  },\n  {\n    \"file\": \"[^\"]*missing.pxi\",\n    \"error\": \"[^\"]*missing.pxi: No such file or directory\"\n  },\n  {\n    \"file\": \"[^\"]*frame-float.pxi\",\n"
  EXPECT_STDERR_LINES 0)

# 3. Messages name the real cause and the limit.
everyday(ConvertTooWide ARGS convert ${img}/too-wide.png ${out}/x.pxi EXPECT_EXIT 1
  EXPECT_STDERR "^pximg: [^\n]*too-wide.png: 10001 x 2 pixels is larger than images can be \\(at most 9999 x 9999\\)\n$")
everyday(ReflectTooWide ARGS filter reflect --fill 600 ${img}/wide.png ${out}/x.pxi EXPECT_EXIT 1
  EXPECT_STDERR "^pximg: --fill 600 makes the image 10200 x 1202 pixels, larger than images can be \\(at most 9999 x 9999\\)\n$")
everyday(ConvertShortHeader ARGS convert ${PROJECT_SOURCE_DIR}/tests/data/bad/header_truncated.pim ${out}/x.pxi
  EXPECT_EXIT 1
  EXPECT_STDERR "^pximg: [^\n]*header_truncated.pim: not a pxImage file \\([0-9]+ bytes, shorter than the 512-byte header block\\)\n$")

# 4. Wrong words are named as such, with the help of the command they reached; help and no command show usage.
everyday(UnknownCommandNamed ARGS bogus EXPECT_EXIT 1
  EXPECT_STDERR "^pximg: unknown command 'bogus' \\(use info, convert, .*\\) \\(see pximg --help\\)\n$")
everyday(HelpCommand ARGS help EXPECT_EXIT 0 EXPECT_STDOUT "Usage: pximg .*Subcommands:" EXPECT_STDERR "^$")
everyday(HelpOfSubcommand ARGS help filter box EXPECT_EXIT 0 EXPECT_STDOUT "Usage: [^\n]*box.*--window")
everyday(UnknownFilter ARGS filter blur a.png b.png EXPECT_EXIT 1
  EXPECT_STDERR "^pximg: filter: unknown command 'blur' \\(use box, min, max, .*\\) \\(see pximg filter --help\\)\n$")
everyday(WindowNotANumber ARGS filter box --window abc a.png b.png EXPECT_EXIT 1
  EXPECT_STDERR "^pximg: --window: 'abc' is not a whole number \\(use 1..9999\\) \\(see pximg filter box --help\\)\n$")
everyday(UnknownTopOption ARGS --bogus EXPECT_EXIT 1 EXPECT_STDERR "^pximg: [^\n]*--bogus[^\n]*\\(see pximg --help\\)\n$")
everyday(ContainerWithoutCommand ARGS container EXPECT_EXIT 1
  EXPECT_STDERR "^pximg: container: a command is needed: one of write, read \\(see pximg container --help\\)\n$")
everyday(NoCommandUsage ARGS "" EXPECT_EXIT 1 EXPECT_STDOUT "Usage: pximg" EXPECT_STDERR "^$")

# 5. Levels an 8-bit image cannot hold are refused with the range, not wrapped around.
foreach(level 300 -5 256 nan 7.5)
  everyday(ThresholdLevel${level} ARGS filter threshold --level ${level} ${img}/camera.png ${out}/t.png
    EXPECT_EXIT 1 EXPECT_STDERR "^pximg: --level .*0..255|^pximg: --level must be a finite number, not nan\n$"
    EXPECT_STDERR_LINES 1)
endforeach()

# 6. One rule for type changes: values kept, --stretch and --shift scale, losses are warned about.
everyday_scenario(ConvertTypeRule)
everyday(CbitWarns ARGS convert ${img}/camera.png ${out}/cbit.pxi --type cbit EXPECT_EXIT 0
  EXPECT_STDERR "^pximg: warning: [^\n]*cbit.pxi: CBIT keeps 1 bit per pixel: [0-9.]+ % of pixels changed, by up to 254; the file is [0-9.]+x the size of a plain one\n$")
everyday(CshortRefusalExplained ARGS convert ${img}/camera.png ${out}/cs.pxi --type cshort EXPECT_EXIT 1
  EXPECT_STDERR "^pximg: [^\n]*cs.pxi: cannot write \\(Images size is too large [0-9]+\\): CSHORT merges only runs of similar pixels whose lowest bit is clear, .*use --encoding short12 or plain, or --shift 8 [^\n]*\n$")
everyday(Short12Warns ARGS convert ${img}/camera.png ${out}/s12.pxi --type short12 EXPECT_EXIT 0
  EXPECT_STDERR "^pximg: warning: [^\n]*s12.pxi: SHORT12 keeps the 12 high bits: [0-9.]+ % of pixels changed, by up to [0-9]+ \\(the data lies below 4096: --shift 4 moves 12-bit data up\\)\n$")

# 7. Unknown extensions and "-" are refused; --format pxi writes our format under any name.
everyday(ConvertJpgRefused ARGS convert ${img}/camera.png ${out}/x.jpg EXPECT_EXIT 1
  EXPECT_STDERR "^pximg: [^\n]*x.jpg: unknown image format '.jpg' \\(use .pxi, .png, .tif, .tiff or .pgm, or --format pxi [^\n]*\n$")
everyday(ConvertJpgAsPxi ARGS convert ${img}/camera.png ${out}/x.jpg --format pxi EXPECT_EXIT 0 EXPECT_STDOUT "^wrote ")
everyday(ConvertDashRefused ARGS convert ${img}/camera.png - EXPECT_EXIT 1
  EXPECT_STDERR "^pximg: '-' is not a file name: pximg writes images to files only\n$")

# 8. Conflicting options are refused.
everyday(CbitPlainConflict ARGS convert ${img}/camera.png ${out}/x.pxi --type cbit --encoding plain EXPECT_EXIT 1
  EXPECT_STDERR "^pximg: --type cbit is an encoding and --encoding plain asks for another: give one of them\n$")
everyday(StretchShiftConflict ARGS convert ${img}/camera.png ${out}/x.pxi --stretch auto --shift 2 EXPECT_EXIT 1
  EXPECT_STDERR "^pximg: --stretch excludes --shift")

# 9. Channel counts as the file stores them; grey in any layout reads as grey.
everyday(InfoGreyAlpha ARGS info ${img}/grey-alpha.png EXPECT_EXIT 0
  EXPECT_STDOUT "format +PNG\nsize +64 x 48\nchannels +grey \\+ alpha, 2 channels\nbits +8 per sample\n")
everyday(InfoGreyPalette ARGS info --json ${img}/grey-palette.png EXPECT_EXIT 0
  EXPECT_STDOUT "\"channels\": 1,\n  \"layout\": \"grey palette\",")
everyday(ColourRefused ARGS convert ${img}/colour.png ${out}/x.png EXPECT_EXIT 1
  EXPECT_STDERR "^pximg: [^\n]*colour.png: a colour image \\(RGB, 3 channels\\); add --grey for its luminance or --channel 0, 1 or 2 for red, green or blue\n$")
everyday_scenario(ColourInput)

# 10. An interrupted write leaves no partial file behind.
add_test(NAME pximg.InterruptedWrite
  COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/tests/interrupted_write.py $<TARGET_FILE:pximg>
          ${demo}/frame-short.pxi ${out}/interrupted)
list(APPEND everydayTests pximg.InterruptedWrite)

# 11. stats: the range without bins, one bin for a constant, whole-value bins for integer data, real errors.
everyday(StatsRangeWithoutBins ARGS stats ${img}/camera.png --bins 0 EXPECT_EXIT 0
  EXPECT_STDOUT "std dev +[0-9.]+\nrange +0 .. 255\n$")
everyday(StatsConstant ARGS stats ${img}/constant.png EXPECT_EXIT 0
  EXPECT_STDOUT "range +7 .. 7\nhistogram +1 bins of width 1 \\(whole values\\)\n  7 +#+ 256\n$")
everyday(StatsWholeValueBins ARGS stats ${img}/camera.png --bins 256 EXPECT_EXIT 0
  EXPECT_STDOUT "histogram +256 bins of width 1 \\(whole values\\)\n  0 ")
everyday_scenario(StatsNoEmptyBins)
everyday(StatsDataSteps ARGS stats ${demo}/frame-short.pxi --region 0 0 32 32 --bins 1000 EXPECT_EXIT 0
  EXPECT_STDOUT "range +112 .. 160\nhistogram +4 bins of width 16 \\(whole values, data in steps of 16\\)\n  112 +#+ +44\n  128 ")
everyday(StatsSizesDiffer ARGS stats ${img}/camera.png --flow-y ${img}/constant.png EXPECT_EXIT 1
  EXPECT_STDERR "^pximg: the images differ in size: [^\n]*camera.png is 64 x 48, [^\n]*constant.png is 16 x 16\n$")
everyday(StatsRegionOutsideNamed ARGS stats ${img}/camera.png --region 0 0 65 10 EXPECT_EXIT 1
  EXPECT_STDERR "^pximg: the region 0 0 65 10 lies outside the 64 x 48 image")
everyday(StatsJson ARGS stats --json ${img}/constant.png EXPECT_EXIT 0
  EXPECT_STDOUT "^{\n  \"file\": [^\n]*,\n  \"measured\": \"pixel value\",\n  \"region\": {\"x0\": 0, \"y0\": 0, \"x1\": 16, \"y1\": 16},\n  \"count\": 256,\n  \"mean\": 7,\n  \"stdDev\": 0,\n  \"min\": 7,\n  \"max\": 7,\n  \"histogram\": .{\"from\": 7, \"to\": 7, \"closed\": true, \"count\": 256}.\n}\n$")

# 12. container: --set takes up to three numbers, write makes its folder, paths with '/'.
everyday(ContainerSetHelp ARGS container write --help EXPECT_EXIT 0 EXPECT_STDOUT "--set UINT \\.\\.\\.|--set S0 \\[S1 \\[S2\\]\\]")
everyday_scenario(ContainerEveryday)

# 13. demo into a folder it cannot write names the reason and prints no table.
everyday(DemoUnwritable ARGS demo /proc/self EXPECT_EXIT 1 EXPECT_STDOUT "^$"
  EXPECT_STDERR "^pximg: /proc/self/frame-short.pxi: [A-Z][^\n]*\n$" EXPECT_STDERR_LINES 1)

set_tests_properties(${everydayTests} PROPERTIES FIXTURES_REQUIRED "pximgDemo;pximgEveryday")

# Features: batch use, info for any image, compare, preview, contact sheet.
everyday_scenario(EverydayBatch)
everyday_scenario(EverydayCompare)
set_tests_properties(pximg.EverydayBatch pximg.EverydayCompare PROPERTIES FIXTURES_REQUIRED "pximgDemo;pximgEveryday")
