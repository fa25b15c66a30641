# Fails when a C or C++ source of the project is not formatted as .clang-format asks.
# Variables: CLANG_FORMAT (the program), SOURCE_DIR (the repository).
file(GLOB_RECURSE sources RELATIVE ${SOURCE_DIR}
  ${SOURCE_DIR}/include/*.h ${SOURCE_DIR}/src/*.cpp ${SOURCE_DIR}/src/*.h ${SOURCE_DIR}/platform/*.cpp
  ${SOURCE_DIR}/platform/*.h ${SOURCE_DIR}/tools/*.cpp ${SOURCE_DIR}/tools/*.h ${SOURCE_DIR}/tests/*.cpp
  ${SOURCE_DIR}/tests/*.h ${SOURCE_DIR}/tests/*.c ${SOURCE_DIR}/bench/*.cpp ${SOURCE_DIR}/bench/*.h
  ${SOURCE_DIR}/fuzz/*.cpp ${SOURCE_DIR}/python/*.cpp ${SOURCE_DIR}/python/*.h)
execute_process(COMMAND ${CLANG_FORMAT} --dry-run --Werror ${sources} WORKING_DIRECTORY ${SOURCE_DIR}
  RESULT_VARIABLE status ERROR_VARIABLE errors)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "not clang-formatted (run clang-format -i on these):\n${errors}")
endif()
