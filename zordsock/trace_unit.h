// The trace record of the functions in zordsock/.
#ifndef ZORDSOCK_TRACE_UNIT_H
#define ZORDSOCK_TRACE_UNIT_H

#include "zora/trc1.h"

namespace zordsock {
inline constinit TRC1_Unit traceUnit{"zordsock", "ZORD410"};
}

// Static, because each folder has its own under this name.
static constexpr TRC1_Unit& trc1Unit = zordsock::traceUnit;

#endif  // ZORDSOCK_TRACE_UNIT_H
