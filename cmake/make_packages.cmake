# Run by CPack on the staged files: builds the zip and the installer reproducibly. Timestamps are SOURCE_DATE_EPOCH, or
# the earliest that a zip can hold.
cmake_minimum_required(VERSION 3.25)
set(staged ${CPACK_TEMPORARY_DIRECTORY})
cmake_path(GET staged PARENT_PATH folder)
set(package ${folder}/${CPACK_PACKAGE_FILE_NAME})
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  set(ENV{SOURCE_DATE_EPOCH} 315532800)
endif()

# Derives a GUID from a name. It must never change: Windows Installer recognises products and components by it.
function(identifier result name)
  string(UUID value NAMESPACE 3E6C2B5D-9A47-4B1E-8C35-7F0D1A6E42B9 TYPE SHA1 UPPER NAME "${name}-${CPACK_ORVEL_WORD_SIZE}")
  set(${result} "{${value}}" PARENT_SCOPE)
endfunction()
identifier(product_code "product-${CPACK_PACKAGE_VERSION}")
identifier(upgrade_code upgrade)
foreach(component FOLDER MODULE CONSOLE REPLAY LICENCES)
  identifier(id ${component})
  list(APPEND variables -D ${component}_COMPONENT=${id})
endforeach()
if(CPACK_ORVEL_WORD_SIZE STREQUAL "x64")
  list(APPEND variables -D BITS=64 -D WIN64=yes -D PROGRAM_FILES=ProgramFiles64Folder)
else()
  list(APPEND variables -D BITS=32 -D WIN64=no -D PROGRAM_FILES=ProgramFilesFolder)
endif()

execute_process(
  COMMAND
    ${CPACK_ORVEL_SOURCE_DIR}/cmake/make_packages.sh ${staged} ${package} ${CPACK_PACKAGE_VERSION} -a ${CPACK_ORVEL_WORD_SIZE} ${variables} -D
    VERSION=${CPACK_PACKAGE_VERSION} -D COMPANY=${CPACK_PACKAGE_VENDOR} -D PRODUCT_CODE=${product_code} -D
    UPGRADE_CODE=${upgrade_code} ${CPACK_ORVEL_SOURCE_DIR}/packaging/OrvelEventLog.wxs COMMAND_ERROR_IS_FATAL ANY)
set(CPACK_EXTERNAL_BUILT_PACKAGES ${package}.zip ${package}.msi)
