# Compile and link options that all components, tools and tests share; link to orvel_options to get them. Warnings are
# errors only in ./check, which sets CMAKE_COMPILE_WARNING_AS_ERROR for the compiler that the project is developed with.
add_library(orvel_options INTERFACE)
target_compile_definitions(orvel_options INTERFACE UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0A00)
target_compile_options(
  orvel_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wold-style-cast
                          -g -fstack-protector-strong>)
# The same sources give the same bytes, wherever and whenever they are built: no directories in the debug information and
# no timestamps in the headers. orvel_shipped and host/CMakeLists.txt do the rest.
target_compile_options(orvel_options INTERFACE -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
# Static runtimes: the binaries import system DLLs alone.
target_link_options(orvel_options INTERFACE -static -fstack-protector-strong -Wl,--no-insert-timestamp)
target_include_directories(orvel_options INTERFACE ${PROJECT_SOURCE_DIR})
if(ORVEL_ARCH STREQUAL "i686")
  # The instructions that every Windows 10 has. Its callers align the stack to less than they need.
  target_compile_options(orvel_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-msse2 -mstackrealign>)
endif()
