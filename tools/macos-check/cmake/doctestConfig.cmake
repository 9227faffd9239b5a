# The header stands in the folder of generated things, which every source searches.
if(NOT TARGET doctest::doctest)
  add_library(doctest::doctest INTERFACE IMPORTED)
endif()
list(APPEND CMAKE_MODULE_PATH "${CMAKE_CURRENT_LIST_DIR}")
