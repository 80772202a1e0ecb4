// log_pipe.h: a pipe that a test has a log written into.
#ifndef DCH_TESTKIT_LOG_PIPE_H
#define DCH_TESTKIT_LOG_PIPE_H

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

#include "dch/net/descriptor.h"

namespace dch::testkit {

// Has room for some 60 KB before it is read.
class LogPipe {
 public:
  LogPipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe for a log");
    _reading = Descriptor(ends[0]);
    _writing = Descriptor(ends[1]);
  }
  // Takes both ends of what does for one.
  LogPipe(Descriptor reading, Descriptor writing)
      : _reading(std::move(reading)), _writing(std::move(writing)) {}

  // What the log is to write to, and what is read.
  int descriptor() const { return _writing.get(); }
  int reader() const { return _reading.get(); }

  // The next bytes, so many; fewer before the end, or where nobody waits for more.
  std::string read(std::size_t count) const {
    std::string bytes(count, '\0');
    std::size_t length = 0;
    ssize_t got;
    while (length < count &&
           (got = ::read(_reading.get(), bytes.data() + length, count - length)) > 0)
      length += static_cast<std::size_t>(got);
    bytes.resize(length);
    return bytes;
  }

  // All that was written, by a log that has ended.
  std::string content() {
    _writing = Descriptor();
    constexpr std::size_t piece = 4'096;
    std::string text, next;
    while (!(next = read(piece)).empty()) text += next;
    return text;
  }

 private:
  Descriptor _reading, _writing;
};

// Makes standard error a pipe with little room, whose other end nobody reads: for a process that is
// about to run another program.
inline void takeALogThatNobodyReads() {
  const LogPipe pipe;
  constexpr int room = 4'096;
  const bool isDone = fcntl(pipe.descriptor(), F_SETPIPE_SZ, room) >= 0 &&
                      dup(pipe.reader()) >= 0 && dup2(pipe.descriptor(), STDERR_FILENO) >= 0;
  if (!isDone) _exit(EXIT_FAILURE);
}

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_LOG_PIPE_H
