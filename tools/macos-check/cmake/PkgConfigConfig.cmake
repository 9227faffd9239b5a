# The headers stand in the folder of generated things, which every source searches.
function(pkg_check_modules prefix)
  if(NOT TARGET PkgConfig::${prefix})
    add_library(PkgConfig::${prefix} INTERFACE IMPORTED GLOBAL)
  endif()
endfunction()
