# The usual hardening of what is shipped: checked string and memory functions, guarded stacks, branch
# targets that the processor can check, and after start-up no writable table of addresses. Only in the
# builds that optimise: _FORTIFY_SOURCE needs that, and the sanitizers check more.
include(CheckPIESupported)
check_pie_supported() # programs are then linked as position-independent as they are compiled

set(hardened $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
set(options
  -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -fstack-protector-strong -fstack-clash-protection)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|i.86)$")
  list(APPEND options -fcf-protection)
endif()
add_compile_options("$<${hardened}:${options}>")
add_link_options("$<${hardened}:-Wl,-z,relro,-z,now,-z,noexecstack>")
