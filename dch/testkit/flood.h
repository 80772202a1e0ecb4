// flood.h: sends without an end, while a test ends what it comes to.
#ifndef DCH_TESTKIT_FLOOD_H
#define DCH_TESTKIT_FLOOD_H

#include <atomic>
#include <cstddef>
#include <string>
#include <thread>

#include "dch/testkit/link_test.h"

namespace dch::testkit {

// On a thread of its own, over one connection after the other: a message is on its way at any
// moment.
template <class Connection>
class Flood {
 public:
  static constexpr std::size_t bodySize = 16'384;  // of which a copy is made

  Flood(const std::string& url, const std::string& subject)
      : _thread([this, url, subject] { send(url, subject); }) {}
  ~Flood() {
    _isEnding = true;
    _thread.join();
  }

 private:
  void send(const std::string& url, const std::string& subject) {
    const std::string body(bodySize, 'x');
    while (!_isEnding) {
      try {
        Connection connection(settingsFor(), url);
        while (!_isEnding) connection.send(subject, {}, {}, body);
      } catch (const LinkError&) {  // the machine stood still
      }
    }
  }

  std::atomic<bool> _isEnding = false;
  std::thread _thread;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_FLOOD_H
