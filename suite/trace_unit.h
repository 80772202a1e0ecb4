// The trace record of the functions in suite/.
#ifndef SUITE_TRACE_UNIT_H
#define SUITE_TRACE_UNIT_H

#include "suite/trc1.h"

namespace suite {
inline constinit TRC1_Unit traceUnit{"suite", "ZORS410"};
}

// Static, because each folder has its own under this name.
static constexpr TRC1_Unit& trc1Unit = suite::traceUnit;

#endif  // SUITE_TRACE_UNIT_H
