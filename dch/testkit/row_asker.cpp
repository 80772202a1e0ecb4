#include "dch/testkit/row_asker.h"

#include <chrono>
#include <stdexcept>

#include "dch/link/subject.h"
#include "dch/testkit/nats_client.h"
#include "dch/testkit/nats_messages.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {

namespace {

constexpr std::chrono::seconds patience{60};

}  // namespace

struct RowAsker::Connection {
  explicit Connection(const std::string& url) : connection(url) {}
  ~Connection() { connection.close(); }

  const NatsClient connection;
  std::string inbox;
  NatsSubscription answers;
};

RowAsker::RowAsker(const std::string& url) : _connection(std::make_unique<Connection>(url)) {
  natsInbox* inbox = nullptr;
  requireDone(natsInbox_Create(&inbox));
  _connection->inbox = NatsInbox(inbox).get();
  _connection->inbox.insert(_connection->inbox.find('.'), ".asker");
  natsSubscription* answers = nullptr;
  requireDone(natsConnection_SubscribeSync(&answers, _connection->connection.get(),
                                           (_connection->inbox + ".>").c_str()));
  _connection->answers.reset(answers);
}

RowAsker::~RowAsker() = default;

void RowAsker::ask(const std::string& site, const std::string& request) {
  askFor(site, request, _connection->inbox + '.' + subjectToken(site) + ".1");
}

void RowAsker::askFor(const std::string& site, const std::string& request,
                      const std::string& answerTo) {
  requireDone(natsConnection_PublishRequest(_connection->connection.get(),
                                            fetchSubject(site).c_str(), answerTo.c_str(),
                                            request.data(), static_cast<int>(request.size())));
  requireDone(natsConnection_FlushTimeout(_connection->connection.get(),
                                          std::chrono::milliseconds(patience).count()));
}

FetchedRows RowAsker::answer() {
  FetchedRows found;
  while (!found.end && found.error.empty()) {
    natsMsg* next = nullptr;
    const natsStatus status = natsSubscription_NextMsg(&next, _connection->answers.get(),
                                                       std::chrono::milliseconds(patience).count());
    if (status == NATS_NO_RESPONDERS) return found;
    requireDone(status);
    const NatsMessage message(next);
    found.end = parseFetchEnd(headerIn(next, "Zord-Fetched"));
    found.error = headerIn(next, "Zord-Error");
    if (const std::string row = headerIn(next, "Zord-Row"); !row.empty())
      found.rows.push_back({headerIn(next, "Zord-Subject"), "", row, bodyOf(next)});
  }
  return found;
}

FetchedRows RowAsker::fetch(const std::string& site, const std::string& request) {
  FetchedRows found;
  const auto isAnswered = [&] {
    ask(site, request);
    found = answer();
    return found.end || !found.error.empty();
  };
  if (!waitUntil(isAnswered, patience)) throw std::runtime_error("nobody answers for " + site);
  return found;
}

FetchedRows RowAsker::fetchAll(const std::string& site, std::vector<RowName> names) {
  FetchedRows all;
  do {
    FetchedRows next = fetch(site, fetchRequestText(names));
    if (!next.end) throw std::runtime_error("no rows come: " + next.error);
    all.rows.insert(all.rows.end(), next.rows.begin(), next.rows.end());
    all.end = next.end;
    names = {next.end->upTo};
  } while (!all.end->isAll);
  return all;
}

}  // namespace dch::testkit
