# Nothing that is built here can be run here, so there are no tests to discover.
function(doctest_discover_tests)
endfunction()
