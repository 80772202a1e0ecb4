#include "dch/testkit/stream_reader.h"

#include <chrono>
#include <memory>
#include <stdexcept>

#include "dch/testkit/nats_client.h"
#include "dch/testkit/nats_messages.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {

namespace {

using JetStream = std::unique_ptr<jsCtx, NatsEnd<jsCtx_Destroy>>;
using StreamInfo = std::unique_ptr<jsStreamInfo, NatsEnd<jsStreamInfo_Destroy>>;

StreamedRow rowOf(natsMsg* message) {
  return {natsMsg_GetSubject(message), headerIn(message, "Nats-Msg-Id"),
          headerIn(message, "Zord-Row"), bodyOf(message)};
}

std::vector<StreamedRow> readAll(const std::string& url) {
  const NatsClient connection(url);
  jsCtx* jetStream = nullptr;
  requireDone(natsConnection_JetStream(&jetStream, connection.get(), nullptr));
  const JetStream jetStreamEnd(jetStream);
  jsStreamInfo* info = nullptr;
  requireDone(js_GetStreamInfo(&info, jetStream, "ZORD_ROWS", nullptr, nullptr));
  const StreamInfo infoEnd(info);

  std::vector<StreamedRow> rows;
  if (info->State.Msgs == 0) return rows;
  jsSubOptions options;
  requireDone(jsSubOptions_Init(&options));
  options.Stream = "ZORD_ROWS";
  options.Ordered = true;
  natsSubscription* subscription = nullptr;
  requireDone(
      js_SubscribeSync(&subscription, jetStream, "zord.rows.>", nullptr, &options, nullptr));
  const NatsSubscription subscriptionEnd(subscription);
  requireDone(natsSubscription_SetPendingLimits(subscription, -1, -1));
  natsStatus status = NATS_OK;
  while (status == NATS_OK && rows.size() < info->State.Msgs) {
    natsMsg* message = nullptr;
    status = natsSubscription_NextMsg(&message, subscription, 5'000);
    if (status == NATS_OK) rows.push_back(rowOf(NatsMessage(message).get()));
  }
  connection.close();
  requireDone(status);
  return rows;
}

}  // namespace

std::vector<StreamedRow> readStream(const std::string& url, std::size_t atLeast) {
  std::vector<StreamedRow> rows;
  std::string fault;
  const auto areThere = [&] {
    try {
      rows = readAll(url);
      fault = std::to_string(rows.size()) + " rows are there";
      return rows.size() >= atLeast;
    } catch (const std::runtime_error& error) {  // as while a server starts
      fault = error.what();
      return false;
    }
  };
  if (!waitUntil(areThere, std::chrono::seconds(60)))
    throw std::runtime_error("the stream cannot be read: " + fault);
  return rows;
}

}  // namespace dch::testkit
