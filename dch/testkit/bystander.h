// bystander.h: a client that means well, beside one that does not: how long it waits for answers.
#ifndef DCH_TESTKIT_BYSTANDER_H
#define DCH_TESTKIT_BYSTANDER_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>

#include "dch/testkit/clients.h"

namespace dch::testkit {

class Bystander {
 public:
  // What it wants of the server: `questions` are what no store has to keep.
  enum class Wants { everything, questions };

  // Registers an application of its own, takes a source of it on line, and connects.
  explicit Bystander(int port);

  // Asks over both carriers, one thing after the other and for so long at least, while `hostile`,
  // if there is one, is called again and again on a thread of its own. Prints and records how long
  // the answers took; the test fails when one does not come, or when more of them take longer than
  // half a second than five, and than a quarter of the calls, or of the answers where they are
  // fewer.
  void expectIsServed(const std::function<void()>& hostile = nullptr,
                      Wants wants = Wants::everything,
                      std::chrono::seconds atLeast = std::chrono::seconds(0)) const;

 private:
  bool isServed(std::size_t turn, Wants wants) const;

  const UdpClient _datagrams;
  const TcpClient _connection;
  std::string _row;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_BYSTANDER_H
