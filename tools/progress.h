// progress.h: what zordp tells a person while it sends.
#ifndef TOOLS_PROGRESS_H
#define TOOLS_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <string>

#include "zora/zora.h"

namespace tools {

constexpr std::chrono::milliseconds progressInterval{500};

// "1 row", "2 rows".
std::string describeRows(std::uint64_t rows);

// `rows` rows in that time, and the last status: "12 rows, 3.4 rows/s, status 0 (done)".
std::string describeProgress(std::uint64_t rows, double rowsPerSecond, ZORA_Long status);

// One line on standard error, written anew about twice a second and ended by finish(). Nothing is
// written when standard error is no terminal.
class Progress {
 public:
  Progress();

  bool enabled() const { return _enabled; }
  // A row was sent and taken.
  void rowSent();
  // Shows the line anew when it is due; there is none before the first row.
  void tick();
  // Shows the totals, with the rate of the whole run, and ends the line.
  void finish();

  // Tells the user something on a line of its own.
  void say(const std::string& text) const;

  std::uint64_t rows() const { return _rows; }

 private:
  using Clock = std::chrono::steady_clock;
  void show(double rowsPerSecond);

  bool _enabled;
  bool _finished = false;
  std::uint64_t _rows = 0;
  std::uint64_t _rowsShown = 0;
  Clock::time_point _start;
  Clock::time_point _lastShown;
};

}  // namespace tools

#endif  // TOOLS_PROGRESS_H
