// trc1_sink.h: where trace records go. The facility's own; what others may use is in trc1.h.
//
// Any thread may call any function here. None throws.
#ifndef SUITE_TRC1_SINK_H
#define SUITE_TRC1_SINK_H

#include <cstddef>

#include "suite/trc1.h"

namespace suite {

// Gives the record to the sink. Without one, and unless the filter is against it, writes `line`,
// which is the record as users read it, to the trace file or else to standard error.
void writeRecord(const TRC1_Record& record, const char* line, std::size_t lineLength);

// What the facility has to say about its own settings goes to standard error.
[[gnu::format(printf, 1, 2)]] void complain(const char* format, ...);

}  // namespace suite

#endif  // SUITE_TRC1_SINK_H
