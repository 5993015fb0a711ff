# Warnings are errors for the project's own code. Third-party headers come in as SYSTEM includes
# (imported targets and pkg-config targets are SYSTEM by default), so they never trip this.
function(dataparser_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
                                           -Wcast-align -Wunused
                                           -Wimplicit-fallthrough -Werror)
endfunction()
