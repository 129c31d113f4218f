# Functions for shipped binaries.

# orvel_version(TARGET DESCRIPTION): adds a version resource with the project's version.
function(orvel_version target description)
  get_target_property(type ${target} TYPE)
  get_target_property(file_name ${target} OUTPUT_NAME)
  if(NOT file_name)
    set(file_name ${target})
  endif()
  if(type STREQUAL "EXECUTABLE")
    set(file_type VFT_APP)
    string(APPEND file_name .exe)
  else()
    set(file_type VFT_DLL)
    string(APPEND file_name .dll)
  endif()
  set(resource ${CMAKE_CURRENT_BINARY_DIR}/${target}_version.rc)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/version.rc.in ${resource} @ONLY)
  target_sources(${target} PRIVATE ${resource})
endfunction()

# orvel_shipped(TARGET [EXPORT...]): moves the symbols to FILE.debug beside the binary, where a debugger finds them,
# and fails the build unless the binary is hardened, imports only system DLLs and exports exactly these names.
function(orvel_shipped target)
  set(file $<TARGET_FILE:${target}>)
  set(check ${PROJECT_SOURCE_DIR}/cmake/check_binary.sh)
  set(undated ${CMAKE_COMMAND} -E env SOURCE_DATE_EPOCH=0) # else these tools write the current time into the PE header
  add_custom_command(
    TARGET ${target}
    POST_BUILD
    COMMAND ${undated} ${CMAKE_OBJCOPY} --only-keep-debug ${file} ${file}.debug
    COMMAND ${undated} ${CMAKE_STRIP} --strip-all ${file}
    COMMAND ${undated} ${CMAKE_OBJCOPY} --add-gnu-debuglink=${file}.debug ${file}
    COMMAND ${check} ${CMAKE_OBJDUMP} ${file} ${ARGN}
    VERBATIM)
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${check})
endfunction()
