#include "dch/link/streamed_rows.h"

#include <algorithm>
#include <new>

#include "dch/link/stream_settings.h"

namespace dch {

namespace {

constexpr std::chrono::milliseconds longestAsking{1'000};

JetStreamContext contextOf(ServerConnection& connection) {
  jsOptions options;
  jsOptions_Init(&options);
  options.Wait = longestAsking.count();
  jsCtx* made = nullptr;
  if (natsConnection_JetStream(&made, connection.handle(), &options) != NATS_OK)
    throw std::bad_alloc();
  return JetStreamContext(made);
}

}  // namespace

StreamedRows::StreamedRows(ServerConnection& connection, const std::string& subjects,
                           std::uint64_t from)
    : _connection(connection), _context(contextOf(connection)) {
  jsSubOptions options;
  jsSubOptions_Init(&options);
  options.Stream = rowsStreamName;
  options.Ordered = true;
  options.Config.DeliverPolicy = js_DeliverByStartSequence;
  options.Config.OptStartSeq = std::max<std::uint64_t>(from, 1);
  natsSubscription* made = nullptr;
  const natsStatus status =
      js_SubscribeSync(&made, _context.get(), subjects.c_str(), nullptr, &options, nullptr);
  if (status != NATS_OK) connection.fail("the stream of rows cannot be read", status);
  _rows.reset(made);
  natsSubscription_SetPendingLimits(made, -1, -1);  // the server waits for who reads slowly
}

std::optional<StreamedRows::Message> StreamedRows::next(std::chrono::milliseconds atMost) {
  NatsMessage message = _connection.received(_rows.get(), atMost);
  if (message == nullptr) return std::nullopt;
  jsMsgMetaData* made = nullptr;
  if (natsMsg_GetMetaData(&made, message.get()) != NATS_OK)
    _connection.fail("the stream of rows sends what has no place in it");
  const std::unique_ptr<jsMsgMetaData, NatsEnd<jsMsgMetaData_Destroy>> delivery(made);
  return Message{delivery->Sequence.Stream, delivery->NumPending, std::move(message)};
}

bool StreamedRows::isAtEnd() {
  jsConsumerInfo* info = nullptr;
  const natsStatus status = natsSubscription_GetConsumerInfo(&info, _rows.get(), nullptr, nullptr);
  if (status != NATS_OK) _connection.fail("the stream of rows cannot be read", status);
  const bool hasSentAll = info->NumPending == 0;
  jsConsumerInfo_Destroy(info);
  int unread = 0;  // it may have sent them while it was asked
  natsSubscription_GetPending(_rows.get(), &unread, nullptr);
  return hasSentAll && unread == 0;
}

std::string_view StreamedRows::Message::header() const {
  const char* value = nullptr;
  return natsMsgHeader_Get(message.get(), "Zord-Row", &value) == NATS_OK ? value : "";
}

std::string_view StreamedRows::Message::body() const {
  return {natsMsg_GetData(message.get()),
          static_cast<std::size_t>(natsMsg_GetDataLength(message.get()))};
}

}  // namespace dch
