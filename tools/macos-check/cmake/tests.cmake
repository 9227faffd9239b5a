# The application alone is held to the lists of what may be linked; a program of the tests may ask for anything.
function(let_tests_link)
  foreach(program cadora-service tests-core tests-macos)
    target_link_options(${program} PRIVATE "-Wl,-undefined,dynamic_lookup")
  endforeach()
  # Many small sources, each behind the same large headers.
  set_target_properties(tests-core PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 8)
endfunction()
cmake_language(DEFER DIRECTORY "${CMAKE_SOURCE_DIR}" CALL let_tests_link)
