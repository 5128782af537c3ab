# As a module: vbs_embed(<target> <name> <file>...) compiles text files into the target, each as a
# "const std::string_view" of the namespace <name>, called by its file's name without ending, a dash becoming an
# underscore; the header <name>.h that declares them is the target's own. As a script: writes the source file.

function(vbs_embed target name)
  set(output ${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp)
  list(JOIN ARGN "|" files)
  add_custom_command(OUTPUT ${output}
    COMMAND ${CMAKE_COMMAND} -D "VBS_NAME=${name}" -D "VBS_FILES=${files}" -D "VBS_OUTPUT=${output}"
      -P ${PROJECT_SOURCE_DIR}/cmake/VbsEmbed.cmake
    DEPENDS ${ARGN} ${PROJECT_SOURCE_DIR}/cmake/VbsEmbed.cmake
    VERBATIM)
  target_sources(${target} PRIVATE ${output})
endfunction()

if(VBS_OUTPUT)
  string(REPLACE "|" ";" VBS_FILES "${VBS_FILES}")
  file(WRITE ${VBS_OUTPUT} "#include \"${VBS_NAME}.h\"\n")
  foreach(file IN LISTS VBS_FILES)
    get_filename_component(variable ${file} NAME_WE)
    string(REPLACE "-" "_" variable ${variable})
    # By character: compilers need not take a literal of more than 64 KiB.
    file(READ ${file} text HEX)
    string(REGEX REPLACE "(..)" "'\\\\x\\1'," text "${text}")
    file(APPEND ${VBS_OUTPUT} "\nstatic constexpr char ${variable}_text[] = {${text}};\n")
    file(APPEND ${VBS_OUTPUT}
      "const std::string_view ${VBS_NAME}::${variable}(${variable}_text, sizeof ${variable}_text);\n")
  endforeach()
endif()
