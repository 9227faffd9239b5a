# Settings that every target of the project shares.
find_program(CCACHE ccache)
if(CCACHE)
  # What one checkout has compiled serves every other: the paths below it don't count.
  set(CMAKE_CXX_COMPILER_LAUNCHER
    "${CMAKE_COMMAND}" -E env "CCACHE_BASEDIR=${CMAKE_SOURCE_DIR}" CCACHE_NOHASHDIR=1 "${CCACHE}")
endif()

add_library(cadora_settings INTERFACE)
target_compile_options(cadora_settings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
  $<$<BOOL:${CADORA_WARNINGS_ARE_ERRORS}>:-Werror>
  # g++ 12 sees overlapping copies in std::string's own operator+ when it optimises.
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
target_include_directories(cadora_settings INTERFACE "${CMAKE_SOURCE_DIR}/src")

if(CADORA_SANITIZE)
  add_compile_options(-fsanitize=${CADORA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${CADORA_SANITIZE})
  # The checks that a sanitizer inserts hide from g++ what is initialised; the other variants keep the warning.
  add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
endif()

# What is installed reads other people's files: the system's own checks and protections stay in it.
if(CADORA_HOST STREQUAL "linux" AND CMAKE_BUILD_TYPE STREQUAL "Release")
  add_compile_options(-D_FORTIFY_SOURCE=2 -fstack-protector-strong)
  add_link_options(-Wl,-z,relro,-z,now)
endif()

# cadora_add_tests(NAME source... LIBRARIES library...): one doctest program, each of whose cases is a
# ctest test of its own. Under a sanitizer the whole program is one test: starting it is what costs.
function(cadora_add_tests name)
  cmake_parse_arguments(ARG "" "" "LIBRARIES;LABELS" ${ARGN})
  add_executable(${name} ${ARG_UNPARSED_ARGUMENTS})
  target_link_libraries(${name} PRIVATE cadora_settings cadora_test_main ${ARG_LIBRARIES})
  target_include_directories(${name} PRIVATE "${CMAKE_SOURCE_DIR}/tests")
  if(CADORA_SANITIZE)
    add_test(NAME ${name} COMMAND ${name} --order-by=rand)
    set_tests_properties(${name} PROPERTIES TIMEOUT 300)
  else()
    doctest_discover_tests(${name} TEST_PREFIX "${name}: " PROPERTIES
      TIMEOUT 600 SKIP_REGULAR_EXPRESSION "skipped: .")
  endif()
endfunction()

# cadora_embed_texts(TARGET HEADER NAMESPACE NAME FILE [NAME FILE]...): texts in other languages, each in a file that
# its own tools can read, as constants of a header that is included like those below src/.
function(cadora_embed_texts target header namespace)
  set(output "${CMAKE_BINARY_DIR}/texts/${header}")
  set(texts "")
  set(files "")
  set(rest ${ARGN})
  while(rest)
    list(POP_FRONT rest name file)
    cmake_path(ABSOLUTE_PATH file)
    list(APPEND texts "${name}|${file}")
    list(APPEND files "${file}")
  endwhile()
  list(JOIN texts " " texts)
  set(script "${CMAKE_SOURCE_DIR}/cmake/EmbedTexts.cmake")
  add_custom_command(OUTPUT "${output}"
    COMMAND "${CMAKE_COMMAND}" "-DOUTPUT=${output}" "-DNAMESPACE=${namespace}" "-DTEXTS=${texts}" -P "${script}"
    DEPENDS ${files} "${script}" VERBATIM)
  target_sources(${target} PRIVATE "${output}")
  target_include_directories(${target} PRIVATE "${CMAKE_BINARY_DIR}/texts")
endfunction()
