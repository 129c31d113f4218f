# Compile and link options that every room, tool and test shares; link to orvel_options to get them.
add_library(orvel_options INTERFACE)
target_compile_definitions(orvel_options INTERFACE UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0A00)
target_compile_options(
  orvel_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wold-style-cast
                          -Werror -g -fstack-protector-strong>)
# Static runtimes: the binaries import system DLLs alone. No time stamp: the same sources give the same bytes.
target_link_options(orvel_options INTERFACE -static -fstack-protector-strong -Wl,--no-insert-timestamp)
target_include_directories(orvel_options INTERFACE ${PROJECT_SOURCE_DIR})
if(ORVEL_ARCH STREQUAL "i686")
  # The instructions that every Windows 10 has. Its callers align the stack to less than they need.
  target_compile_options(orvel_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-msse2 -mstackrealign>)
endif()
