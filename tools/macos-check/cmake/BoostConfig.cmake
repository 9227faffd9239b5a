# The headers stand in the folder of generated things, which every source searches.
if(NOT TARGET Boost::headers)
  add_library(Boost::headers INTERFACE IMPORTED)
  # The oldest that is supported uses what C++20 has taken out of the library, unless it is told.
  target_compile_definitions(Boost::headers INTERFACE BOOST_ASIO_HAS_STD_INVOKE_RESULT)
endif()
