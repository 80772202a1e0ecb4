#include "dch/link/row_stream.h"

#include <charconv>
#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

#include "dch/link/server_connection.h"
#include "dch/link/stream_settings.h"

namespace dch {

namespace {

using nlohmann::json;
using Answer = RowStream::Answer;

// A server closes the connection on which a longer line comes; what is in it beside the subjects
// takes less than 64 bytes.
constexpr std::size_t longestLine = 4'096;
constexpr std::size_t restOfLine = 64;

// JetStream's numbers of the errors that say that a message is too large.
constexpr int messageTooLarge = 10054;
constexpr int headerTooLarge = 10097;

Answer refusal(const json& error) {
  const int code = error.value("err_code", 0);
  const bool isTooLarge = code == messageTooLarge || code == headerTooLarge;
  return {.kind = isTooLarge ? Answer::Kind::tooLarge : Answer::Kind::refused,
          .reason = error.value("description", std::string("no reason given"))};
}

// Of the text, in which the stream says what it did; throws json::exception when it does not.
Answer answerIn(std::string_view text) {
  const json said = json::parse(text);
  if (const auto error = said.find("error"); error != said.end()) return refusal(*error);
  const auto& stream = said.at("stream").get_ref<const std::string&>();
  if (stream != rowsStreamName) return {.reason = "the stream '" + stream + "' takes the rows"};
  return {.kind = said.value("duplicate", false) ? Answer::Kind::duplicate : Answer::Kind::taken};
}

Answer answerOf(natsMsg* message) {
  try {
    return answerIn(
        {natsMsg_GetData(message), static_cast<std::size_t>(natsMsg_GetDataLength(message))});
  } catch (const json::exception&) {
    return {.reason = "the server's answer cannot be read"};
  }
}

}  // namespace

RowStream::RowStream(const LinkSettings& settings, const std::string& server)
    : _connection(std::make_unique<ServerConnection>(settings, server)) {
  provideRowsStream(*_connection);
}

RowStream::~RowStream() = default;

RowStream::Sent RowStream::send(const OutgoingRow& row) {
  const std::string replySubject = _connection->replySubject(std::to_string(row.number));
  if (row.subject.size() + replySubject.size() + restOfLine > longestLine) return Sent::tooLarge;
  std::vector<ServerConnection::Header> headers;
  if (!row.id.empty()) headers.push_back({"Nats-Msg-Id", row.id.c_str()});
  headers.push_back({"Zord-Row", row.header.c_str()});
  const natsStatus status = _connection->send(row.subject, replySubject, headers, row.message);
  return status == NATS_MAX_PAYLOAD ? Sent::tooLarge : Sent::yes;
}

std::optional<Answer> RowStream::nextAnswer(std::chrono::milliseconds atMost) {
  const auto [message, nobodyTakesIt] = _connection->next(atMost);
  if (nobodyTakesIt) return Answer{.reason = "no stream takes rows now"};
  if (message == nullptr) return std::nullopt;
  const std::string_view name = _connection->nameIn(natsMsg_GetSubject(message.get()));
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
  if (error != std::errc() || end != name.data() + name.size()) return std::nullopt;
  Answer answer = answerOf(message.get());
  answer.number = number;
  return answer;
}

}  // namespace dch
