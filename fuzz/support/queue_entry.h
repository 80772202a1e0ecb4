// queue_entry.h: what the library's receive loop has put into its server's queue.
#ifndef FUZZ_SUPPORT_QUEUE_ENTRY_H
#define FUZZ_SUPPORT_QUEUE_ENTRY_H

#include <string>

#include "dch/core/peer_address.h"
#include "zordipc/zordipc.h"

namespace fuzz {

// What an entry tells: a client's message, that the loop has started, that a connection is gone, or
// that what came on it was no whole message.
enum class Told { message, ready, disconnected, broken };

struct QueueEntry {
  Told told = Told::message;
  std::string bytes;  // of a message
  dch::PeerAddress sender;
  unsigned connection = 0;  // its descriptor, 0 for a datagram
};

// Takes the oldest entry of a queue that has one.
QueueEntry takeEntry(DCHipc& server);

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_QUEUE_ENTRY_H
