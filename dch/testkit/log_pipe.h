// log_pipe.h: a pipe that a test has a log written into.
#ifndef DCH_TESTKIT_LOG_PIPE_H
#define DCH_TESTKIT_LOG_PIPE_H

#include <fcntl.h>
#include <unistd.h>

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

  // What the log is to write to.
  int descriptor() const { return _writing.get(); }

  // All that was written, by a log that has ended.
  std::string content() {
    _writing = Descriptor();
    std::string text;
    char bytes[4096];
    ssize_t count;
    while ((count = read(_reading.get(), bytes, sizeof bytes)) > 0)
      text.append(bytes, static_cast<std::size_t>(count));
    return text;
  }

 private:
  Descriptor _reading, _writing;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_LOG_PIPE_H
