// null_trace.h: traces into nothing, so that what the trace makes of a message can be fuzzed too.
#ifndef FUZZ_SUPPORT_NULL_TRACE_H
#define FUZZ_SUPPORT_NULL_TRACE_H

#include "zora/trc1.h"

namespace fuzz {

// Drops the records of the classes that ZORA_TRACE switches on.
inline void traceIntoNothing() {
  TRC1_SetSink([](void*, const TRC1_Record&) {}, nullptr);
}

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_NULL_TRACE_H
