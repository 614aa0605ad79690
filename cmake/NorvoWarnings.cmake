# Warnings are set per target so that third-party headers pulled in as
# SYSTEM includes stay quiet.
function(norvo_set_warnings target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
    -Wold-style-cast -Wno-missing-field-initializers)
  # GCC 12 reports uninitialized members inside std::variant copies of
  # vectors at -O2 where there are none (GCC bug 105562 and relatives).
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${target} PRIVATE -Wno-maybe-uninitialized)
  endif()
  if(NORVO_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
