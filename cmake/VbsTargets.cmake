# Flags shared by every target of this project; call vbs_flags(<target>) on each. A warning is an error where
# CMAKE_COMPILE_WARNING_AS_ERROR says so, as in the presets: a compiler of tomorrow must not stop somebody's build.

function(vbs_flags target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wcast-qual
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
  if(VBS_COVERAGE)
    # Threads and forked children count into the same numbers.
    target_compile_options(${target} PRIVATE --coverage -fprofile-update=atomic)
    target_link_options(${target} PRIVATE --coverage)
  endif()
endfunction()
