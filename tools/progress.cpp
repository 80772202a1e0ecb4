#include "tools/progress.h"

#include <unistd.h>

#include <cstdio>

#include "tools/status_text.h"

namespace tools {
namespace {

constexpr char clearLine[] = "\r\x1b[K";

double rate(std::uint64_t rows, std::chrono::duration<double> time) {
  return time.count() > 0 ? static_cast<double>(rows) / time.count() : 0;
}

}  // namespace

std::string describeRows(std::uint64_t rows) {
  return std::to_string(rows) + (rows == 1 ? " row" : " rows");
}

std::string describeProgress(std::uint64_t rows, double rowsPerSecond, ZORA_Long status) {
  char rateText[32];
  std::snprintf(rateText, sizeof rateText, rowsPerSecond < 10 ? "%.1f" : "%.0f", rowsPerSecond);
  return describeRows(rows) + ", " + rateText + " rows/s, " + describeStatus(status);
}

Progress::Progress()
    : _enabled(isatty(STDERR_FILENO) == 1), _start(Clock::now()), _lastShown(_start) {}

void Progress::rowSent() {
  ++_rows;
  tick();
}

void Progress::tick() {
  const Clock::time_point now = Clock::now();
  if (!_enabled || _rows == 0 || now - _lastShown < progressInterval) return;
  show(rate(_rows - _rowsShown, now - _lastShown));
  _lastShown = now;
  _rowsShown = _rows;
}

void Progress::finish() {
  if (!_enabled || _finished) return;
  _finished = true;
  show(rate(_rows, Clock::now() - _start));
  std::fputc('\n', stderr);
}

void Progress::say(const std::string& text) const {
  std::fprintf(stderr, "%szordp: %s\n", _enabled ? clearLine : "", text.c_str());
}

void Progress::show(double rowsPerSecond) {
  std::fprintf(stderr, "%szordp: %s", clearLine,
               describeProgress(_rows, rowsPerSecond, DCH_STATUS_OK).c_str());
}

}  // namespace tools
