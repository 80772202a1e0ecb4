#include "fuzz/support/queue_entry.h"

#include <cstring>
#include <memory>
#include <utility>

#include "fuzz/support/require.h"
#include "zordsock/zordsock.h"

namespace fuzz {

namespace {

// The sender's name tells a notice from a client's message of the same text: clients have one. A
// whole message of a stream begins with its length, which no notice does.
Told toldBy(std::string_view text, bool hasSenderName, bool isDatagram) {
  if (isDatagram)
    return !hasSenderName && text == SERVER_NOTICE_READY ? Told::ready : Told::message;
  if (!hasSenderName && text == SERVER_NOTICE_DISCONNECT) return Told::disconnected;
  return text == SERVER_NOTICE_RESEND ? Told::broken : Told::message;
}

}  // namespace

QueueEntry takeEntry(DCHipc& server) {
  const ipcCircularBuffer& queue = *server._ipcCircularBuffer;
  require(queue.num_full > 0, "an entry to take");
  const auto length = static_cast<std::size_t>(queue.dataLen[queue.start_idx]);
  char* taken = nullptr;
  ZORA_Long capacity = 0;
  char address[IPC_ADDRESS_SIZE];
  ZORA_Long addressLength = 0;
  char name[IPC_NAME_SIZE];
  QueueEntry entry;
  server.ipc_get_data(&taken, &capacity, address, &addressLength, name, &entry.connection);
  const std::unique_ptr<char[]> bytes(taken);
  require(server.ipcGetError() == 0 && length < static_cast<std::size_t>(capacity),
          "an entry is taken");
  sockaddr_in sender{};
  require(addressLength == sizeof sender, "a sender's address");
  std::memcpy(&sender, address, sizeof sender);
  entry.sender = dch::PeerAddress(sender);
  const std::string_view text(bytes.get(), length);
  entry.told = toldBy(text, name[0] != ' ', entry.connection == 0);
  if (entry.told == Told::message) entry.bytes = text;
  return entry;
}

}  // namespace fuzz
