#include "dch/incoming_message.h"

#include <cstring>

#include "suite/osv1.h"
#include "zordsock/zordsock.h"

namespace dch {

namespace {

// What this program's other threads queue, beside the receive loop's own notices.
constexpr std::string_view stopText = "SERVER_STOP";
constexpr std::string_view endOfProgramText = "PROGRAM_ENDED";
constexpr std::string_view reportText = "REPORT_WANTED";
constexpr std::string_view timeText = "TIME_IS_UP";

constexpr int retrySeconds = 1;

// Without a sender's name, as no client can send it. Queueing from a second thread is sound: it is
// all done under the queue's lock.
void putNotice(DCHipc& endpoint, std::string_view text) {
  const sockaddr_in nobody{};
  endpoint.ipc_put_data(static_cast<ZORA_Long>(text.size()), text.data(), &nobody, sizeof nobody,
                        nullptr, 0);
}

}  // namespace

Notice noticeOf(const IncomingMessage& message) {
  const std::string_view text = message.text();
  if (message.isDatagram()) {
    if (message.hasSenderName) return Notice::none;
    if (text == SERVER_NOTICE_READY) return Notice::ready;
    if (text == stopText) return Notice::stopRequested;
    if (text == endOfProgramText) return Notice::programEnded;
    if (text == reportText) return Notice::reportWanted;
    if (text == timeText) return Notice::timeIsUp;
    return Notice::none;
  }
  if (text == SERVER_NOTICE_DISCONNECT && !message.hasSenderName) return Notice::disconnected;
  // Such a text is never a client's whole message: its first bytes would be a much larger length.
  if (text == SERVER_NOTICE_RESEND) return Notice::brokenMessage;
  return Notice::none;
}

Inbox::~Inbox() {
  delete[] _buffer;
}

IncomingMessage Inbox::receive() {
  alignas(sockaddr_in) char address[IPC_ADDRESS_SIZE];
  char name[IPC_NAME_SIZE];
  IncomingMessage message;
  // The endpoint's error state is shared with the receiver thread; whether the sender was filled in
  // tells for sure that a message was taken.
  constexpr ZORA_Long nothingTaken = -1;
  ZORA_Long addressLength = nothingTaken;
  for (;;) {
    _endpoint.ipc_get_data(&_buffer, &_bufferSize, address, &addressLength, name,
                           &message.connection);
    if (addressLength != nothingTaken) break;
    // Without memory: the message stays in the queue.
    OSV1_Sleep(retrySeconds);
  }
  message.bytes = _buffer;
  message.received = lengthOfLastMessage();
  message.hasSenderName = name[0] != ' ';
  sockaddr_in sender{};
  if (addressLength >= static_cast<ZORA_Long>(sizeof sender))
    std::memcpy(&sender, address, sizeof sender);
  message.sender = PeerAddress(sender);
  return message;
}

// ipc_get_data does not tell how long the message was. Its slot is the one before the oldest entry,
// and as one slot always stays unused, the slot's length stands until the next message is taken.
std::size_t Inbox::lengthOfLastMessage() {
  ipcCircularBuffer& queue = *_endpoint._ipcCircularBuffer;
  if (ZORA_GetLock(&queue, this) != 0) return 0;
  const ZORA_Long slot = (queue.start_idx + IPC_QSIZE - 1) % IPC_QSIZE;
  const ZORA_Long length = queue.dataLen[slot];
  ZORA_ReleaseLock(&queue, this);
  return static_cast<std::size_t>(length);
}

void requestStop(DCHipc& endpoint) {
  putNotice(endpoint, stopText);
}

void announceEndOfProgram(DCHipc& endpoint) {
  putNotice(endpoint, endOfProgramText);
}

void requestReport(DCHipc& endpoint) {
  putNotice(endpoint, reportText);
}

void announceTime(DCHipc& endpoint) {
  putNotice(endpoint, timeText);
}

}  // namespace dch
