#include "dch/testkit/scripted_site.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "dch/link/alive_message.h"
#include "dch/link/subject.h"
#include "dch/testkit/nats_client.h"
#include "dch/testkit/nats_messages.h"
#include "dch/testkit/row_names.h"

namespace dch::testkit {

namespace {

constexpr std::int64_t patienceMilliseconds = 60'000;

}  // namespace

struct ScriptedSite::Ends {
  explicit Ends(const std::string& url) : connection(url) {
    jsOptions options;
    jsOptions_Init(&options);
    options.Wait = patienceMilliseconds;
    jsCtx* made = nullptr;
    requireDone(natsConnection_JetStream(&made, connection.get(), &options));
    jetStream.reset(made);
  }
  ~Ends() { connection.close(); }  // a hub may still ask

  const NatsClient connection;
  JetStreamContext jetStream;
  NatsSubscription questions;
};

ScriptedSite::ScriptedSite(const std::string& url, std::string name, int run)
    : _name(std::move(name)), _run(run), _ends(std::make_unique<Ends>(url)) {}

ScriptedSite::~ScriptedSite() {
  _isEnding = true;
  if (_thread.joinable()) _thread.join();
}

void ScriptedSite::publish(const std::vector<std::int64_t>& numbers) {
  for (const std::int64_t number : numbers)
    publish(subject(), rowHeaderText(headerOf(number)), "row " + std::to_string(number));
}

void ScriptedSite::publish(const std::string& subject, const std::string& header,
                           const std::string& body) {
  const NatsMessage message = messageFor(subject, body);
  if (!header.empty()) setHeader(message, "Zord-Row", header);
  jsPubAck* ack = nullptr;
  requireDone(js_PublishMsg(&ack, _ends->jetStream.get(), message.get(), nullptr, nullptr));
  jsPubAck_Destroy(ack);
}

RowName ScriptedSite::nameOf(std::int64_t number) const {
  return name(number, _run);
}

RowHeader ScriptedSite::headerOf(std::int64_t number) const {
  return {nameOf(number), nameOf(number - 1), number, 7, "host1"};
}

std::string ScriptedSite::subject() const {
  return rowSubject(_name, "HOSTMON", "load");
}

void ScriptedSite::setScript(Script script) {
  {
    const std::lock_guard lock(_mutex);
    _script = std::move(script);
  }
  if (_thread.joinable()) return;
  natsSubscription* made = nullptr;
  requireDone(
      natsConnection_SubscribeSync(&made, _ends->connection.get(), fetchSubject(_name).c_str()));
  _ends->questions.reset(made);
  requireDone(natsConnection_FlushTimeout(_ends->connection.get(), patienceMilliseconds));
  _thread = std::thread([this] { answerAll(); });
}

ScriptedSite::Answer ScriptedSite::fileAnswer(const std::vector<RowName>& question,
                                              std::int64_t last) const {
  std::int64_t first = 1;
  for (const RowName& each : question)
    if (each.epoch == nameOf(1).epoch) first = std::max(first, each.number + 1);
  Answer answer;
  for (std::int64_t number = first; number <= last; ++number) answer.rows.push_back(number);
  answer.end =
      FetchEnd{nameOf(std::max(first - 1, last)), answer.rows.size(), true, nameOf(1).epoch};
  return answer;
}

std::vector<std::vector<RowName>> ScriptedSite::questions() const {
  const std::lock_guard lock(_mutex);
  return _questions;
}

void ScriptedSite::answerAll() {
  for (auto nextSpeech = std::chrono::steady_clock::now(); !_isEnding;) {
    if (std::chrono::steady_clock::now() >= nextSpeech) {
      nextSpeech += std::chrono::seconds(1);
      sayThatItIsThere();
    }
    natsMsg* next = nullptr;
    if (natsSubscription_NextMsg(&next, _ends->questions.get(), 20) != NATS_OK) continue;
    const NatsMessage message(next);
    answer(natsMsg_GetReply(next), parseFetchRequest(bodyOf(next)).value());
  }
}

void ScriptedSite::sayThatItIsThere() {
  const std::string text = aliveText({.run = nameOf(1).epoch,
                                      .count = ++_timesSaid,
                                      .period = std::chrono::seconds(1),
                                      .version = "scripted"});
  natsConnection_PublishString(_ends->connection.get(), aliveSubject(_name).c_str(), text.c_str());
}

void ScriptedSite::answer(const std::string& asker, const std::vector<RowName>& question) {
  Script script;
  {
    const std::lock_guard lock(_mutex);
    _questions.push_back(question);
    script = _script;
  }
  const Answer answer = script(question);
  const auto send = [&](const NatsMessage& message) {
    natsConnection_PublishMsg(_ends->connection.get(), message.get());  // any may get lost
  };
  for (const std::int64_t number : answer.rows) {
    const NatsMessage row = messageFor(asker, "row " + std::to_string(number));
    setHeader(row, "Zord-Row", rowHeaderText(headerOf(number)));
    setHeader(row, "Zord-Subject", subject());
    send(row);
  }
  const NatsMessage last = messageFor(asker, "");
  if (answer.end) setHeader(last, "Zord-Fetched", fetchEndText(*answer.end));
  if (!answer.error.empty()) setHeader(last, "Zord-Error", answer.error);
  if (answer.end || !answer.error.empty()) send(last);
}

}  // namespace dch::testkit
