# Compile and link options that all components, tools and tests share; link to orvel_options to get them. Warnings are
# errors only in ./check, which sets CMAKE_COMPILE_WARNING_AS_ERROR for the compiler that the project is developed with.
add_library(orvel_options INTERFACE)
target_compile_definitions(orvel_options INTERFACE UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0A00)
target_compile_options(
  orvel_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wold-style-cast
                          -g -fstack-protector-strong>)
# Reproducible builds: no directories in the debug information and no timestamps in the headers. orvel_shipped and
# host/CMakeLists.txt do the rest.
target_compile_options(orvel_options INTERFACE -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
# Static runtimes: the binaries import only system DLLs.
target_link_options(orvel_options INTERFACE -static -fstack-protector-strong -Wl,--no-insert-timestamp)
target_include_directories(orvel_options INTERFACE ${PROJECT_SOURCE_DIR})
if(ORVEL_ARCH STREQUAL "i686")
  # Every Windows 10 processor has SSE2. Its instructions need a stricter stack alignment than callers guarantee.
  target_compile_options(orvel_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-msse2 -mstackrealign>)
endif()
