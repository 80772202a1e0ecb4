# Warnings as errors, for this project's own targets only; nothing of it is exported.
add_library(zord410_warnings INTERFACE)
target_compile_options(zord410_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)

# In a 32-bit build ZORA_Long is `long`, while the trace texts print every 32-bit value with %d.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  target_compile_options(zord410_warnings INTERFACE -Wno-format)
endif()

# At -O3 g++ 12 sees an overlap in the library's own `const char* + std::string` that cannot be there
# (GCC bug 105651).
target_compile_options(zord410_warnings INTERFACE
  $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>)

# The transports have no virtual destructor, because the slots of their virtual operations are a
# binary interface; each is destroyed through its own class.
target_compile_options(zord410_warnings INTERFACE
  $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wno-delete-non-abstract-non-virtual-dtor>)
