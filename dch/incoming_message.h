// incoming_message.h: what the server takes from its endpoint's queue.
#ifndef DCH_INCOMING_MESSAGE_H
#define DCH_INCOMING_MESSAGE_H

#include <cstddef>
#include <string_view>

#include "dch/core/message.h"
#include "zordipc/zordipc.h"

namespace dch {

struct IncomingMessage {
  char* bytes = nullptr;     // the inbox's; valid until the next message is taken
  std::size_t received = 0;  // how many bytes came in; the length word may say something else
  PeerAddress sender;
  unsigned int connection = 0;  // the stream connection it came on, 0 for a datagram
  bool hasSenderName = false;   // set for everything that a client sent

  bool isDatagram() const { return connection == 0; }
  std::string_view text() const { return {bytes, received}; }
  Origin origin() const { return {sender, connection}; }
};

// Messages of the endpoint itself.
enum class Notice {
  none,           // a client's message
  ready,          // the server's sockets are open; the sender is the server's own address
  disconnected,   // the peer of a stream connection is gone, and the connection is closed
  brokenMessage,  // what came on a stream connection was no whole message
  stopRequested,  // requestStop was called
  programEnded,   // announceEndOfProgram was called
  reportWanted,   // requestReport was called
  timeIsUp,       // announceTime was called
};

// Tells a notice from a client's message that has the same text. The sender's name decides: clients
// cannot leave it out, and on a connection only text with its own length in front gets through.
Notice noticeOf(const IncomingMessage& message);

// The receiving end of a server endpoint's queue.
class Inbox {
 public:
  // The endpoint outlives the inbox.
  explicit Inbox(DCHipc& endpoint) : _endpoint(endpoint) {}
  ~Inbox();
  Inbox(const Inbox&) = delete;
  Inbox& operator=(const Inbox&) = delete;

  // Waits for the next message. The same thread each time.
  IncomingMessage receive();

 private:
  std::size_t lengthOfLastMessage();

  DCHipc& _endpoint;
  char* _buffer = nullptr;  // allocated and replaced by ipc_get_data
  ZORA_Long _bufferSize = 0;
};

// These put a notice behind the messages that wait, so that those are still handled. Any thread;
// they wait while the queue is full.
void requestStop(DCHipc& endpoint);
void announceEndOfProgram(DCHipc& endpoint);
void requestReport(DCHipc& endpoint);
void announceTime(DCHipc& endpoint);

}  // namespace dch

#endif  // DCH_INCOMING_MESSAGE_H
