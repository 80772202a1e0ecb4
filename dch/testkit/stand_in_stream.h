// stand_in_stream.h: what answers in JetStream's place, at a server without it.
#ifndef DCH_TESTKIT_STAND_IN_STREAM_H
#define DCH_TESTKIT_STAND_IN_STREAM_H

#include <atomic>
#include <string>
#include <thread>

namespace dch::testkit {

// On a thread of its own, until its object goes.
class StandInStream {
 public:
  // Answers whatever is published on these subjects. Throws std::runtime_error when it cannot in
  // time.
  StandInStream(const std::string& url, const std::string& subjects, const std::string& answer);
  ~StandInStream();
  StandInStream(const StandInStream&) = delete;
  StandInStream& operator=(const StandInStream&) = delete;

 private:
  std::atomic<bool> _isEnding = false;
  std::thread _thread;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_STAND_IN_STREAM_H
