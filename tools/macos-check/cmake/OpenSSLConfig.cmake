# The headers stand in the folder of generated things, which every source searches.
foreach(part SSL Crypto)
  if(NOT TARGET OpenSSL::${part})
    add_library(OpenSSL::${part} INTERFACE IMPORTED GLOBAL)
  endif()
endforeach()
