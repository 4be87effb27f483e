# The warnings under which all of our own code is clean. Debian's headers are system headers and not meant.
add_library(qo_compile_options INTERFACE)
target_compile_options(qo_compile_options INTERFACE
    -Wall -Wextra -Wconversion -Wshadow -Wformat=2 -Werror)

# qo_target_options(TARGET): what every target of ours is compiled with.
function(qo_target_options target)
    target_link_libraries(${target} PRIVATE qo_compile_options)
endfunction()
