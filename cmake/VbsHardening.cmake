# vbs_shipped(<target>): the flags of code that runs on users' machines. In a build of a release type they are those
# that Debian's "dpkg-buildflags" gives with hardening=+all, written out so that another distribution's compiler
# gives the same (its warnings are among those of vbs_flags); a debugger's, a sanitizer's and a fuzzer's build are left
# as they are.

include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)

set(VBS_HARDENED OFF)
if(CMAKE_BUILD_TYPE MATCHES "^(Release|RelWithDebInfo|MinSizeRel)$" AND NOT VBS_SANITIZE)
  set(VBS_HARDENED ON)
endif()

if(VBS_HARDENED)
  # Not every processor has these two.
  check_cxx_compiler_flag(-fstack-clash-protection VBS_HAS_STACK_CLASH)
  check_cxx_compiler_flag(-fcf-protection VBS_HAS_CF_PROTECTION)
endif()

function(vbs_shipped target)
  if(NOT VBS_HARDENED)
    return()
  endif()
  target_compile_options(${target} PRIVATE
    -fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2
    # No folder of the building machine is named in what is shipped.
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.
    $<$<BOOL:${VBS_HAS_STACK_CLASH}>:-fstack-clash-protection>
    $<$<BOOL:${VBS_HAS_CF_PROTECTION}>:-fcf-protection>)
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "STATIC_LIBRARY")
    # Ends up in an executable unless its CMakeLists.txt says that it ends up in a shared library.
    target_compile_options(${target} PRIVATE
      $<$<NOT:$<BOOL:$<TARGET_PROPERTY:${target},POSITION_INDEPENDENT_CODE>>>:-fPIE>)
    return()
  endif()
  set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  target_link_options(${target} PRIVATE -Wl,-z,relro -Wl,-z,now -Wl,--build-id=sha1)
endfunction()
