# Warnings are set per target so that third-party headers pulled in as
# SYSTEM includes stay quiet.
function(norvo_set_warnings target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
    -Wold-style-cast -Wno-missing-field-initializers)
  if(NORVO_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
