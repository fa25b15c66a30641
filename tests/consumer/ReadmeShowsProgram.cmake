# Fails unless README holds PROGRAM's text verbatim as a fenced C block.
file(READ ${README} readme)
file(READ ${PROGRAM} program)
string(FIND "${readme}" "```c\n${program}```\n" at)
if(at EQUAL -1)
  message(FATAL_ERROR "README.md does not show ${PROGRAM} verbatim in a ```c block")
endif()
message(STATUS "README.md shows ${PROGRAM}")
