// test_lines.h: the trace lines that requests have in common.
#ifndef ZORDCHCL_TEST_LINES_H
#define ZORDCHCL_TEST_LINES_H

#include <string>
#include <vector>

#include "tests/support/trace_lines.h"

using Lines = std::vector<TraceLine>;

inline Lines operator+(Lines lines, const Lines& more) {
  lines.insert(lines.end(), more.begin(), more.end());
  return lines;
}

inline TraceLine dumpLine(std::string text) {
  return {TRC1_CLASS_DUMP, std::move(text)};
}

inline TraceLine eventLine(std::string text) {
  return {TRC1_CLASS_EVENTS, std::move(text)};
}

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

inline TraceLine releasedLine() {
  return storageLine("Deleting _readBuffer<@{address}>\n");
}

#endif  // ZORDCHCL_TEST_LINES_H
