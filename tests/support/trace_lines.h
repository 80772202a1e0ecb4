// trace_lines.h: the whole trace of a function, compared text by text, in order, class by class.
#ifndef TESTS_SUPPORT_TRACE_LINES_H
#define TESTS_SUPPORT_TRACE_LINES_H

#include <functional>
#include <string>
#include <vector>

#include "zora/trc1.h"

// One expected record. "{address}" in its text stands for any address, "{number}" for any decimal
// number.
struct TraceLine {
  unsigned traceClass;
  std::string text;
};

using Lines = std::vector<TraceLine>;

inline Lines operator+(Lines lines, const Lines& more) {
  lines.insert(lines.end(), more.begin(), more.end());
  return lines;
}

// The text that a trace point with this format and these arguments writes.
[[gnu::format(printf, 1, 2)]] std::string textOf(const char* format, ...);

TraceLine errorLine(std::string text);
TraceLine detailLine(std::string text);
TraceLine storageLine(std::string text);
TraceLine flowLine(std::string text);
TraceLine eventLine(std::string text);
// The heading of a dump; its bytes are not traced by the function itself.
TraceLine dumpLine(std::string text);
TraceLine entryLine();
TraceLine exitLine();
TraceLine exitLine(long long value);

// Does what is to be traced and returns the lines that it must have written.
using TracedScenario = std::function<Lines()>;

// Runs `scenario` with all trace classes on and with each class alone. Each time the records of
// `function` must be its lines, in order: all of them, or those of the one class.
void expectTrace(const std::string& function, const TracedScenario& scenario);

// The same for a scenario that ends its process, and also with all classes off. It runs in a child
// each time, which must end with exit status 1 after exactly `lines`.
void expectTraceAndExit(const std::string& function, const std::function<void()>& scenario,
                        const Lines& lines);

#endif  // TESTS_SUPPORT_TRACE_LINES_H
