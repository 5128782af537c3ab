# Flags shared by every target of this project; call vbs_flags(<target>) on each.

function(vbs_flags target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Werror -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wcast-qual
    -Wcast-align -Wformat=2 -Wundef -Wnon-virtual-dtor -Woverloaded-virtual -Wimplicit-fallthrough
    -fno-omit-frame-pointer)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${target} PRIVATE -Wduplicated-cond -Wduplicated-branches -Wlogical-op)
  else()
    # The locks carry capability annotations that only clang reads.
    target_compile_options(${target} PRIVATE -Wthread-safety)
  endif()
  # A 32-bit build addresses the same files as a 64-bit one.
  target_compile_definitions(${target} PRIVATE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
  if(VBS_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${VBS_SANITIZE} -fno-sanitize-recover=all)
    target_link_options(${target} PRIVATE -fsanitize=${VBS_SANITIZE})
  endif()
endfunction()
