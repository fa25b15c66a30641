# Writes a synthetic grab of type 55 (nine files) with `pximg container write`, reads it back with
# `pximg container read` and checks that the read lists the same files, kinds, encodings and sizes as the
# write, and the container's XML form. Variables: PXIMG (the program), WORK (a scratch directory).
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
set(grab --grab-type 55 --tile 7 --set 10 20 30)
execute_process(COMMAND ${PXIMG} container write ${WORK} ${grab} --width 96 --height 64
  RESULT_VARIABLE status OUTPUT_VARIABLE written ERROR_VARIABLE err)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "container write: exit status ${status}\n${written}${err}")
endif()
execute_process(COMMAND ${PXIMG} container read ${WORK} ${grab}
  RESULT_VARIABLE status OUTPUT_VARIABLE read ERROR_VARIABLE err)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "container read: exit status ${status}\n${read}${err}")
endif()

file(GLOB files ${WORK}/*.pxi)
list(LENGTH files count)
if(NOT count EQUAL 9)
  message(FATAL_ERROR "expected 9 image files in ${WORK}, found ${count}")
endif()

# Everything after the first line of each listing: one line per image (the read adds the XML line).
string(REGEX REPLACE "^[^\n]*\n" "" writtenImages "${written}")
string(REGEX REPLACE "^[^\n]*\n" "" readImages "${read}")
string(FIND "${readImages}" "${writtenImages}" at)
if(NOT at EQUAL 0)
  message(FATAL_ERROR "the read lists other files than the write:\nwrite:\n${written}\nread:\n${read}")
endif()
foreach(expected
    "^read 9 images of grab type 55, tile 7\n"
    "T00007_FLS_00010_0.pxi  FLS  (CSHORT |SHORT12)  96 x 64 +[0-9]+ bytes\n"
    "T00007_PRJ_00020_2.pxi  PRJ  SHORT12  96 x 64 +[0-9]+ bytes\n"
    "T00007_LGT_00030_1.pxi  LGT  SHORT12  96 x 64 +[0-9]+ bytes\n"
    "<PxImageContainer Tile=\"7\" ImgGrabType=\"55\" SetNum0=\"10\" SetNum1=\"20\" SetNum2=\"30\" Path=\"[^\"]+\"/>\n$")
  if(NOT read MATCHES "${expected}")
    message(FATAL_ERROR "container read output does not match '${expected}':\n${read}")
  endif()
endforeach()
