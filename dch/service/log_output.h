// log_output.h: writes the log, and lets nobody wait for it.
#ifndef DCH_SERVICE_LOG_OUTPUT_H
#define DCH_SERVICE_LOG_OUTPUT_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "dch/core/log.h"

namespace dch {

// A thread of its own writes what waits here, in its order: the disk of a log, and who reads it,
// may take their time. When too much waits, what comes is dropped and counted. Any thread.
class LogOutput {
 public:
  // What comes while so much waits is dropped.
  static constexpr std::size_t mostWaiting = 1 << 20;  // bytes

  // Writes where `descriptor`, which stays open, leads. Throws std::bad_alloc.
  explicit LogOutput(int descriptor);

  // Waits until all is written, but not for longer than about a second: from then on nothing is
  // written but what the thread is at, which goes on while it has to.
  ~LogOutput();

  LogOutput(const LogOutput&) = delete;
  LogOutput& operator=(const LogOutput&) = delete;

  // One line, or several, with their ends: all of them are written, or none when there is no room,
  // or no thread to be had; the next call tries to start it again.
  // The journal of systemd has the priority with each.
  void write(Priority priority, std::string_view lines) noexcept;

  // For a line that is not written at all.
  void countDropped() noexcept;

  // How many calls of write() were for nothing so far, and lines not written.
  std::uint64_t dropped() const;

 private:
  class Queue;

  const bool _isJournal;
  const std::shared_ptr<Queue> _queue;  // also the thread's, which may outlive this
};

}  // namespace dch

#endif  // DCH_SERVICE_LOG_OUTPUT_H
