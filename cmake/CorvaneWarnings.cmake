# Warnings are errors on the project's own code.
function(corvane_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Werror)
endfunction()
