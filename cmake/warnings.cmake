# Warning set for the project's own targets; -Werror unless switched off.
function(codecutil_warnings target)
  # -Wno-psabi: GCC notes on armhf about an ABI change of GCC 7.1, not warnings.
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wconversion -Wshadow -Wno-psabi
                         $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions>)
  if(CODECUTIL_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

if(CODECUTIL_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
