# Finds the OpenCV 4 modules that Debian installs without a CMake package, and defines imported targets
# OpenCV::core, OpenCV::imgproc and OpenCV::imgcodecs.
find_path(OpenCVDeb_INCLUDE_DIR opencv2/core.hpp PATH_SUFFIXES opencv4)
set(_pximage_cv_vars OpenCVDeb_INCLUDE_DIR)
foreach(_module core imgproc imgcodecs)
  find_library(OpenCVDeb_${_module}_LIBRARY NAMES opencv_${_module})
  list(APPEND _pximage_cv_vars OpenCVDeb_${_module}_LIBRARY)
  if(OpenCVDeb_${_module}_LIBRARY AND NOT TARGET OpenCV::${_module})
    add_library(OpenCV::${_module} UNKNOWN IMPORTED)
    set_target_properties(OpenCV::${_module} PROPERTIES
      IMPORTED_LOCATION "${OpenCVDeb_${_module}_LIBRARY}"
      INTERFACE_INCLUDE_DIRECTORIES "${OpenCVDeb_INCLUDE_DIR}")
  endif()
endforeach()
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(OpenCVDeb REQUIRED_VARS ${_pximage_cv_vars})
