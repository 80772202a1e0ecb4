#include "dch/link/streamed_rows.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <exception>
#include <nlohmann/json.hpp>
#include <utility>

#include "dch/link/number_text.h"
#include "dch/link/stream_settings.h"

namespace dch {

namespace {

using nlohmann::json;

// After so long without a row the server tells how many it has sent.
constexpr std::chrono::nanoseconds pauseOfTelling = std::chrono::seconds(5);

std::string subjectFor(const char* question, const std::string& reader = {}) {
  return std::string("$JS.API.CONSUMER.") + question + "." + rowsStreamName +
         (reader.empty() ? "" : "." + reader);
}

// What take(answer) finds in what JetStream says. Throws LinkError, also when that is no.
template <class Take>
auto ask(ServerConnection& connection, const std::string& subject, const json& body, Take take) {
  const std::string fault = "the stream of rows cannot be read: ";
  const auto [message, nobodyTakesIt] = connection.ask(
      subject, body.is_null() ? std::string() : body.dump(), ServerConnection::longestAsking);
  if (nobodyTakesIt) connection.fail(fault + "JetStream is not enabled");
  if (message == nullptr) connection.fail(fault + "JetStream does not answer");
  try {
    const json answer = json::parse(
        std::string_view(natsMsg_GetData(message.get()),
                         static_cast<std::size_t>(natsMsg_GetDataLength(message.get()))));
    if (const auto error = answer.find("error"); error != answer.end())
      connection.fail(fault + error->value("description", std::string("no reason given")));
    return take(answer);
  } catch (const json::exception&) {
    connection.fail(fault + "what JetStream says cannot be read");
  }
}

std::string_view headerIn(natsMsg* message, const char* name) {
  const char* value = nullptr;
  return natsMsgHeader_Get(message, name, &value) == NATS_OK ? value : "";
}

std::string_view replyOf(natsMsg* message) {
  const char* const reply = natsMsg_GetReply(message);
  return reply != nullptr ? reply : "";
}

struct Delivery {
  std::uint64_t sequence = 0;
  std::uint64_t number = 0;  // of those that this reader was sent
  std::uint64_t pending = 0;
};

// What the subject to which a message would be acknowledged says of it:
// $JS.ACK.STREAM.CONSUMER.DELIVERED.SEQUENCE.NUMBER.TIME.PENDING
// or, by other servers, $JS.ACK.DOMAIN.ACCOUNT.STREAM. ..., with more at the end.
Delivery deliveryIn(std::string_view subject) {
  std::array<std::string_view, 12> tokens;
  std::size_t count = 0;
  while (count < tokens.size() && !subject.empty()) {
    tokens[count] = subject.substr(0, subject.find('.'));
    subject.remove_prefix(std::min(tokens[count++].size() + 1, subject.size()));
  }
  constexpr std::size_t shortForm = 9, tokensBefore = 2;
  const std::string_view* const first = &tokens[count > shortForm ? tokensBefore : 0];
  const auto number = [&](std::size_t token) { return numberIn<std::uint64_t>(first[token]); };
  return {number(5), number(6), number(8)};
}

}  // namespace

// The server sends some rows, and more when it is told that these were read.
StreamedRows::StreamedRows(ServerConnection& connection, const std::string& subjects,
                           std::uint64_t from)
    : _connection(connection) {
  const std::string inbox = connection.newInbox();
  _rows = connection.subscribe(inbox);
  // The server waits for who reads slowly, and has less than that on the way then.
  natsSubscription_SetPendingLimits(_rows.get(), -1, 64 << 20);
  const json reader{{"deliver_subject", inbox},
                    {"filter_subject", subjects},
                    {"deliver_policy", "by_start_sequence"},
                    {"opt_start_seq", std::max<std::uint64_t>(from, 1)},
                    {"ack_policy", "none"},
                    {"max_deliver", 1},
                    {"flow_control", true},
                    {"idle_heartbeat", pauseOfTelling.count()}};
  _reader =
      ask(connection, subjectFor("CREATE"), {{"stream_name", rowsStreamName}, {"config", reader}},
          [](const json& said) { return said.at("name").get<std::string>(); });
}

// The server ends it by itself some seconds after nobody listens any more.
StreamedRows::~StreamedRows() {
  if (_rows == nullptr || _reader.empty()) return;
  try {
    _connection.send(subjectFor("DELETE", _reader), {}, {}, {});
  } catch (const std::exception&) {
  }
}

std::optional<StreamedRows::Message> StreamedRows::next(std::chrono::milliseconds atMost) {
  using std::chrono::steady_clock;
  const auto end = steady_clock::now() + atMost;
  while (true) {
    NatsMessage message = _connection.received(_rows.get(), atMost);
    if (message == nullptr) return std::nullopt;
    const std::string_view reply = replyOf(message.get());
    if (!reply.starts_with("$JS.ACK.")) {
      answerControl(message.get());
      const auto left =
          std::chrono::duration_cast<std::chrono::milliseconds>(end - steady_clock::now());
      if (left.count() <= 0) return std::nullopt;
      atMost = left;
      continue;
    }
    const Delivery delivery = deliveryIn(reply);
    if (delivery.number != ++_read) _connection.fail("rows of the stream got lost on the way");
    return Message{delivery.sequence, delivery.pending, std::move(message)};
  }
}

// What the server says beside the rows, in their order.
void StreamedRows::answerControl(natsMsg* message) {
  for (const std::string_view each : {replyOf(message), headerIn(message, "Nats-Consumer-Stalled")})
    if (each.starts_with("$JS.FC.")) _connection.send(std::string(each), {}, {}, {});
  const std::string_view sent = headerIn(message, "Nats-Last-Consumer");
  if (!sent.empty() && numberIn<std::uint64_t>(sent) != _read)
    _connection.fail("rows of the stream got lost on the way");
}

bool StreamedRows::isAtEnd() {
  return ask(_connection, subjectFor("INFO", _reader), nullptr, [this](const json& said) {
    return said.at("num_pending") == 0 && said.at("delivered").at("consumer_seq") == _read;
  });
}

std::string_view StreamedRows::Message::header() const {
  return headerIn(message.get(), "Zord-Row");
}

std::string_view StreamedRows::Message::body() const {
  return {natsMsg_GetData(message.get()),
          static_cast<std::size_t>(natsMsg_GetDataLength(message.get()))};
}

}  // namespace dch
