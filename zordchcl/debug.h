// debug.h: the library's own debug switch; VX_Debug in zora.h is what others ask.
#ifndef ZORDCHCL_DEBUG_H
#define ZORDCHCL_DEBUG_H

// Takes over the first character of ZORA_VERBOSE, 'N' when it is not set, and returns it. The
// variable is read once per process. Called by VX_Debug only; any thread may.
int VX_Debug_Initialize();

#endif  // ZORDCHCL_DEBUG_H
