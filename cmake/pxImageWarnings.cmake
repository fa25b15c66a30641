# Warnings are errors for every target of the project.
function(pximage_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Werror)
endfunction()
