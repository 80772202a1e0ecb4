// interface_types.h: what the base services have of the exported interface. zora.h, which is above
// them, declares the same for C programs; where both are seen, a difference does not compile.
#ifndef SUITE_INTERFACE_TYPES_H
#define SUITE_INTERFACE_TYPES_H

#include <climits>

#if LONG_MAX == 2147483647L
using ZORA_Long = long;
#else
using ZORA_Long = int;
#endif

// The four-letter names of the data-provider types.
extern "C" const char* const ZORA_DPTypeNames[12];

#endif  // SUITE_INTERFACE_TYPES_H
