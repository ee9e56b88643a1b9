# Warnings for our own targets; third-party code gets its own flags where it is compiled.
function(qmload_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
endfunction()
