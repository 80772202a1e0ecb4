// log_output.h: writes the log without ever waiting for who reads it.
#ifndef DCH_SERVICE_LOG_OUTPUT_H
#define DCH_SERVICE_LOG_OUTPUT_H

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

#include "dch/core/log.h"
#include "dch/net/descriptor.h"

namespace dch {

// What cannot be written at once is kept for a while, up to a limit; what is beyond it is dropped
// and counted. Any thread.
class LogOutput {
 public:
  static constexpr std::size_t mostKept = 1 << 20;  // bytes

  // Writes where `descriptor`, which stays open, leads.
  explicit LogOutput(int descriptor);

  // One line, or several, with their ends. The journal of systemd has the priority with each.
  void write(Priority priority, std::string_view lines) noexcept;

  // Writes what is kept, as far as it can be written now. To be called every now and then.
  void flush() noexcept;

  // For a line that is not written at all.
  void countDropped() noexcept;

  // How many calls of write() were for nothing, and lines not written.
  std::uint64_t dropped() const;

 private:
  void writeAsIs(std::string_view text) noexcept;
  std::size_t tryWrite(std::string_view text);
  void writeKept();

  const bool _isJournal;
  const bool _isSocket;
  const Descriptor _own;  // leads to the same, and does not wait
  const int _descriptor;

  mutable std::mutex _mutex;  // guards what follows
  std::string _kept;
  std::uint64_t _dropped = 0;
};

}  // namespace dch

#endif  // DCH_SERVICE_LOG_OUTPUT_H
