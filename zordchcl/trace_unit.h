// The trace record of the functions in zordchcl/.
#ifndef ZORDCHCL_TRACE_UNIT_H
#define ZORDCHCL_TRACE_UNIT_H

#include "zora/trc1.h"

namespace zordchcl {
inline constinit TRC1_Unit traceUnit{"zordchcl", "ZORDC410"};
}

// Static, because each folder has its own under this name.
static constexpr TRC1_Unit& trc1Unit = zordchcl::traceUnit;

#endif  // ZORDCHCL_TRACE_UNIT_H
