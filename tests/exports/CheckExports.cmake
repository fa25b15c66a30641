# Lists the dynamic symbols that the shared library defines and fails when one of them is neither a C
# function of the interface (pxImage...), nor a member of PxImageContainer, nor the Gaussian blur bridge under
# its C++ signature bool(FIMAGE *, int, double). Instantiations from the C++
# standard library's own headers (namespace std keeps default visibility) are tolerated.
execute_process(COMMAND nm -D --defined-only ${LIBRARY} OUTPUT_VARIABLE symbols RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "nm failed on ${LIBRARY}")
endif()
string(REPLACE "\n" ";" lines "${symbols}")
set(count 0)
foreach(line IN LISTS lines)
  if(line MATCHES "^[0-9a-f]+ ([A-Za-z]) (.+)$")
    set(kind ${CMAKE_MATCH_1})
    set(name ${CMAKE_MATCH_2})
    if(kind MATCHES "[TtDdBbRrVvWwuiG]" AND NOT name MATCHES "^_(init|fini)$" AND NOT name MATCHES "^(_edata|_end|__bss_start)$")
      if(name MATCHES "^pxImage" OR name MATCHES "PxImageContainer" OR name STREQUAL "_Z31BlurByGaussianFilterUsingOpenCvP6FIMAGEid")
        math(EXPR count "${count} + 1")
      elseif(name MATCHES "^_Z(ZN|GVZN|N|TVN|TIN|TSN)?K?St")
        # a standard-library instantiation
      else()
        message(FATAL_ERROR "unexpected exported symbol: ${name}")
      endif()
    endif()
  endif()
endforeach()
if(count EQUAL 0)
  message(FATAL_ERROR "no exported symbol found")
endif()
message(STATUS "${count} exported symbols, all part of the interface")
