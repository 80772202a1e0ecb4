// test_lines.h: the trace lines that requests have in common.
#ifndef ZORDCHCL_TEST_LINES_H
#define ZORDCHCL_TEST_LINES_H

#include <string>

#include "tests/support/trace_lines.h"

// What stands before the write of a message of `length` bytes.
inline Lines writingLines(const std::string& request, int length) {
  return {dumpLine(textOf("DUMP[%d] of %s request.\n", length, request.c_str())),
          detailLine(textOf("Writing %s message. %d bytes\n", request.c_str(), length))};
}

inline TraceLine writeErrorLine(const std::string& request) {
  return errorLine("Error: writing " + request + " message to DCHserver\n");
}

inline TraceLine waitingLine(const std::string& request) {
  return detailLine("[@{address}] Waiting for " + request + " response.\n");
}

// The line that tells that an answer was freed.
inline TraceLine releasedLine() {
  return storageLine("Deleting _readBuffer<@{address}>\n");
}

// What an Initialize says that fails.
inline TraceLine returningNullLine() {
  return eventLine("Returning NULL\n");
}

#endif  // ZORDCHCL_TEST_LINES_H
