# The packages of one architecture, built by the target `package`: a zip for developers and administrators, and an
# installer.
if(ORVEL_ARCH STREQUAL "x86_64")
  set(word_size x64)
else()
  set(word_size x86)
endif()

install(TARGETS Orvel_eventlog eventlog_console RUNTIME DESTINATION .)
install(FILES ${CMAKE_BINARY_DIR}/bin/OrvelAgent.tlb ${CMAKE_BINARY_DIR}/bin/EventLogProviderLib.tlb DESTINATION .)
install(TARGETS replay_log RUNTIME DESTINATION replay)
install(CODE "execute_process(COMMAND \"${PROJECT_SOURCE_DIR}/cmake/notices.sh\" ${ORVEL_ARCH} COMMAND_ERROR_IS_FATAL ANY
  OUTPUT_FILE \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/THIRD-PARTY-NOTICES\")")
install(FILES LICENSE README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md DESTINATION .)
install(FILES host/OrvelAgent.idl DESTINATION host)
install(DIRECTORY docs DESTINATION .)
install(DIRECTORY samples DESTINATION . PATTERN CMakeLists.txt EXCLUDE)

set(CPACK_GENERATOR External)
set(CPACK_EXTERNAL_ENABLE_STAGING ON)
set(CPACK_EXTERNAL_PACKAGE_SCRIPT ${PROJECT_SOURCE_DIR}/cmake/make_packages.cmake)
set(CPACK_PACKAGE_VENDOR ${ORVEL_COMPANY})
set(CPACK_PACKAGE_FILE_NAME OrvelEventLog-${PROJECT_VERSION}-${word_size})
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR})
set(CPACK_ORVEL_WORD_SIZE ${word_size})
set(CPACK_ORVEL_SOURCE_DIR ${PROJECT_SOURCE_DIR})
set(CPACK_VERBATIM_VARIABLES TRUE)
include(CPack)
