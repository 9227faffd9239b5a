# The headers stand in the folder of generated things, which every source searches.
if(NOT TARGET CURL::libcurl)
  add_library(CURL::libcurl INTERFACE IMPORTED)
endif()
