#include "dch/testkit/jet_stream.h"

#include <chrono>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "dch/testkit/nats_client.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {

namespace {

// What it answers, or why it does not. What is done and not answered in time cannot be asked for
// again, so that time is long: a server that is not ready says so at once.
std::string ask(const std::string& url, const std::string& subject, const std::string& body) {
  const NatsClient connection(url);
  natsMsg* answer = nullptr;
  const natsStatus status = natsConnection_RequestString(&answer, connection.get(), subject.c_str(),
                                                         body.c_str(), 30'000);
  if (status != NATS_OK) return natsStatus_GetText(status);
  const NatsMessage answerEnd(answer);
  return {natsMsg_GetData(answer), static_cast<std::size_t>(natsMsg_GetDataLength(answer))};
}

bool isDone(const std::string& answer) {
  const nlohmann::json said = nlohmann::json::parse(answer, nullptr, false);
  return said.is_object() && !said.contains("error");
}

}  // namespace

std::string askJetStream(const std::string& url, const std::string& question,
                         const std::string& otherSettings) {
  nlohmann::json settings{{"name", "ZORD_ROWS"},   {"subjects", {"zord.rows.>"}},
                          {"retention", "limits"}, {"storage", "file"},
                          {"max_msgs", -1},        {"max_bytes", -1},
                          {"num_replicas", 1},     {"deny_purge", true},
                          {"deny_delete", true}};
  settings.update(nlohmann::json::parse(otherSettings));
  const bool hasSettings = question == "CREATE" || question == "UPDATE";
  std::string answer;
  const auto tries = [&] {
    answer = ask(url, "$JS.API.STREAM." + question + "." + settings.at("name").get<std::string>(),
                 hasSettings ? settings.dump() : std::string());
    return isDone(answer);
  };
  if (!waitUntil(tries, std::chrono::seconds(60)))
    throw std::runtime_error("JetStream does not do " + question + ": " + answer);
  return answer;
}

}  // namespace dch::testkit
