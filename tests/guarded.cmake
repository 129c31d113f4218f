# The module once more, with undefined behaviour trapped, the standard library's assertions, and the guarded heap. The
# test programs named below run against it as a whole.
set(guarded_sources support/guard_heap.cpp)
foreach(room orvel_host orvel_metric orvel_appcrash orvel_lamina orvel_provider Orvel_eventlog)
  get_target_property(folder ${room} SOURCE_DIR)
  get_target_property(files ${room} SOURCES)
  foreach(file ${files})
    if(NOT file MATCHES "_version\\.rc$")
      cmake_path(ABSOLUTE_PATH file BASE_DIRECTORY ${folder})
      list(APPEND guarded_sources ${file})
    endif()
  endforeach()
endforeach()
add_library(guarded_module SHARED ${guarded_sources})
set_target_properties(guarded_module PROPERTIES PREFIX "" OUTPUT_NAME Orvel_eventlog RUNTIME_OUTPUT_DIRECTORY
                                                ${CMAKE_BINARY_DIR}/guarded)
target_compile_definitions(guarded_module PRIVATE _GLIBCXX_ASSERTIONS)
# The warnings are those of the ordinary build, and some that only the traps cause.
target_compile_options(guarded_module PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-O1 -fsanitize=undefined
                                              -fsanitize-undefined-trap-on-error -w>)
foreach(function malloc calloc realloc free __imp_HeapAlloc __imp_HeapFree __imp_SysAllocString __imp_SysAllocStringLen
                 __imp_SysFreeString __imp_VariantClear)
  target_link_options(guarded_module PRIVATE -Wl,--wrap=${function})
endforeach()
target_include_directories(guarded_module PRIVATE ${CMAKE_BINARY_DIR}/bin) # where the resources find the libraries
target_link_libraries(guarded_module PRIVATE orvel_options orvel_interfaces wevtapi oleaut32 ole32 uuid)
add_dependencies(guarded_module host_interfaces provider_typelib)

orvel_test(guard_test SOURCES guard_test.cpp LIBRARIES test_support)
add_dependencies(guard_test guarded_module)

# Left out: what replaces allocating imports that this module does not have, and what takes long on a page per block.
foreach(program module_tests host_tests com_object_test registration_test)
  add_test(NAME "guarded: ${program}"
           COMMAND ${program} --gtest_brief=1
                   --gtest_filter=-*OutOfMemory*:*AMillionMarkers*:*Race*/Mode0:*Race*/Mode1:*Race*/Mode8:*Race*/Mode13)
  set_tests_properties(
    "guarded: ${program}" PROPERTIES ENVIRONMENT ORVEL_MODULE_FOLDER=guarded TIMEOUT 180 RESOURCE_LOCK registry)
endforeach()
