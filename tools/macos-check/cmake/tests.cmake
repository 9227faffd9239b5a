# The application alone is held to the lists of what may be linked; a program of the tests may ask for anything.
function(let_tests_link)
  foreach(program cadora-service tests-core tests-macos)
    target_link_options(${program} PRIVATE "-Wl,-undefined,dynamic_lookup")
  endforeach()
endfunction()
cmake_language(DEFER DIRECTORY "${CMAKE_SOURCE_DIR}" CALL let_tests_link)
