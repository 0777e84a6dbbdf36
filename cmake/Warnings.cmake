# Warnings are errors in our own code.
add_library(velmor_warnings INTERFACE)
add_library(Velmor::warnings ALIAS velmor_warnings)
target_compile_options(velmor_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
