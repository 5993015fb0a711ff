# The project's own code builds warning-free. DATAPARSER_WARNINGS_AS_ERRORS (ON in every preset and
# in CI, OFF by default for consumers and packagers, whose compilers may know warnings ours do not)
# turns every warning into an error. Third-party headers come in as SYSTEM includes (imported
# targets and pkg-config targets are SYSTEM by default), so they never trip this.
option(DATAPARSER_WARNINGS_AS_ERRORS "Treat compiler warnings in the project's code as errors" OFF)

function(dataparser_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
                                           -Wcast-align -Wunused -Wimplicit-fallthrough)
  if(DATAPARSER_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
