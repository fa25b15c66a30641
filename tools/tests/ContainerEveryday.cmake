# container write makes its folder as demo does; errors name files with '/' on this system.
include(${CMAKE_CURRENT_LIST_DIR}/PximgSteps.cmake)
file(REMOVE_RECURSE ${WORK})
pximg(container write ${WORK}/new/grab --grab-type 1 --width 32 --height 24)
expect_output("^wrote 3 images of grab type 1, tile 0\nT00000_FLS_00000_0.pxi ")
file(WRITE ${WORK}/new/grab/T00000_FLS_00000_1.pxi "cut short")
execute_process(COMMAND ${PXIMG} container read ${WORK}/new/grab --grab-type 1
  RESULT_VARIABLE status ERROR_VARIABLE err OUTPUT_QUIET)
if(NOT status EQUAL 1 OR NOT err MATCHES "grab/T00000_FLS_00000_1.pxi\\)\n$" OR err MATCHES "\\\\")
  message(FATAL_ERROR "damaged grab: status ${status}, stderr ${err}")
endif()
