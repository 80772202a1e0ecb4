// client_run.h: a client that makes one request, and what its socket receives.
#ifndef FUZZ_SUPPORT_CLIENT_RUN_H
#define FUZZ_SUPPORT_CLIENT_RUN_H

#include <deque>
#include <optional>
#include <string>

#include "fuzz/support/field_model.h"
#include "fuzz/support/input.h"
#include "fuzz/support/network.h"

namespace fuzz {

// What a variable holds until a request writes to it.
constexpr ZORA_Long untouched = 4711;

// How the datagrams stand in an input; its first byte is the sum of these.
enum ClientShape : unsigned {
  SHAPE_ONE_DATAGRAM = 0,  // the rest of the input is one datagram
  SHAPE_CUT = 1,           // it is cut: how many pieces, how long each is, then the bytes
  SHAPE_RIGHT_LENGTH = 2,  // what the first datagram has of the length word is made to fit
  SHAPE_INTERRUPT = 4,     // the interrupt socket gets the first datagram instead
  SHAPE_RIGHT_SIZE = 8,    // zeroes follow, up to the length that the first datagram announces
};

// The network of one client: its socket has the datagrams of an input to read, and no more.
class ClientRun : public Network {
 public:
  // Takes the shape and all that follows. There is one datagram at least.
  explicit ClientRun(Input* input);

  // The message that a read makes of the datagrams, nothing when it makes none.
  std::optional<std::string> message() const;
  // What came to the interrupt socket.
  const std::optional<std::string>& interrupt() const { return _interrupt; }
  bool hasDatagrams() const { return !_datagrams.empty(); }

  bool isReadable(int descriptor) override;
  ssize_t receive(int descriptor, char* bytes, std::size_t capacity, sockaddr_in* sender) override;
  void send(std::string_view bytes) override;

 private:
  std::deque<std::string> _datagrams;
  std::size_t _received = 0;
  std::optional<std::string> _interrupt;
  bool _interruptTaken = false;
};

// What a request with an answer that is a status is to end in.
struct StatusOutcome {
  int result;
  ZORA_Long status;
};
StatusOutcome expectedStatus(const std::optional<std::string>& message,
                             ZORA_Long statusWhenMissing);

// Points the library to the network of this process. Called by LLVMFuzzerInitialize.
void setUpClient();

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_CLIENT_RUN_H
