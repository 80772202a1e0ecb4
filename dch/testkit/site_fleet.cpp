#include "dch/testkit/site_fleet.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <utility>

#include "dch/link/alive_message.h"
#include "dch/link/row_fetch.h"
#include "dch/link/row_header.h"
#include "dch/link/subject.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/nats_client.h"
#include "dch/testkit/row_names.h"

namespace dch::testkit {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int longestAnswer = 60'000;  // milliseconds
constexpr int mostUnanswered = 4'096;
constexpr std::int64_t mostRowsOfAnswer = 1'000;
constexpr int groups = 10;
// Of its first row; the others follow after a millisecond each.
constexpr Time firstTime = 1'769'903'999'000'000;

std::string siteName(int site) {
  return "site" + std::to_string(site);
}

std::string groupName(int group) {
  return "group" + std::to_string(group);
}

Epoch runOf(int site) {
  return name(1, site + 1).epoch;
}

}  // namespace

struct SiteFleet::Row {
  std::string subject, header, body;
};

// The subscriptions go when their connections are closed.
struct SiteFleet::Ends {
  std::unique_ptr<NatsClient> rows;  // of all sites
  std::vector<std::unique_ptr<NatsClient>> sites;
  std::vector<NatsSubscription> subscriptions;

  void subscribe(const NatsClient& client, const char* subject, natsMsgHandler handler,
                 SiteFleet* fleet) {
    natsSubscription* made = nullptr;
    requireDone(natsConnection_Subscribe(&made, client.get(), subject, handler, fleet));
    subscriptions.emplace_back(made);
    requireDone(natsSubscription_SetPendingLimits(made, -1, -1));
  }

  ~Ends() {
    for (const auto& each : sites) each->close();
    if (rows) rows->close();
  }
};

SiteFleet::SiteFleet(std::string url, const Size& size)
    : _url(std::move(url)),
      _size(size),
      _ends(std::make_unique<Ends>()),
      _published(static_cast<std::size_t>(size.sites)) {
  const auto hear = [](natsConnection*, natsSubscription*, natsMsg* message, void* fleet) {
    ++static_cast<SiteFleet*>(fleet)->_heard;
    natsMsg_Destroy(message);
  };
  const auto question = [](natsConnection*, natsSubscription*, natsMsg* next, void* fleet) {
    const NatsMessage message(next);
    if (natsMsg_GetReply(next) != nullptr)
      static_cast<SiteFleet*>(fleet)->answer(natsMsg_GetSubject(next), bodyOf(next),
                                             natsMsg_GetReply(next));
  };
  _ends->rows = std::make_unique<NatsClient>(_url);
  _ends->subscribe(*_ends->rows, "zord.fetch.*", question, this);
  for (int site = 0; site < _size.sites; ++site) {
    _ends->sites.push_back(std::make_unique<NatsClient>(_url, "", NatsClient::Threads::shared));
    _ends->subscribe(*_ends->sites.back(), "zord.alive.*", hear, this);
  }
  _speaking = std::thread([this] { speakInTurns(); });
}

SiteFleet::~SiteFleet() {
  _isEnding = true;
  _speaking.join();
}

void SiteFleet::publish(int rowsOfSource) {
  natsSubscription* made = nullptr;
  requireDone(natsConnection_SubscribeSync(&made, _ends->rows->get(), "_INBOX.fleet.*"));
  const NatsSubscription answers(made);
  requireDone(natsSubscription_SetPendingLimits(made, -1, -1));
  int unanswered = 0;
  const auto takeAnswer = [&] {
    natsMsg* next = nullptr;
    requireDone(natsSubscription_NextMsg(&next, made, longestAnswer));
    const NatsMessage message(next);
    if (const std::string text = bodyOf(next); text.find("\"error\"") != std::string::npos)
      throw std::runtime_error("the stream does not take a row: " + text);
    --unanswered;
  };
  const std::int64_t rowsOfSite = std::int64_t{rowsOfSource} * _size.sourcesOfSite;
  std::uint64_t question = 0;
  for (std::int64_t turn = 0; turn < rowsOfSite; ++turn)
    for (int site = 0; site < _size.sites; ++site) {
      while (unanswered >= mostUnanswered) takeAnswer();
      const Row row = rowOf(site, _published[static_cast<std::size_t>(site)] + 1);
      const std::string reply = "_INBOX.fleet." + std::to_string(++question);
      const NatsMessage message = messageFor(row.subject, row.body, reply.c_str());
      setHeader(message, "Zord-Row", row.header);
      requireDone(natsConnection_PublishMsg(_ends->rows->get(), message.get()));
      ++_published[static_cast<std::size_t>(site)];
      ++unanswered;
    }
  while (unanswered > 0) takeAnswer();
}

// As far apart as they would be if each did so by itself.
void SiteFleet::speakInTurns() {
  const auto pause = std::max(std::chrono::microseconds(1'000'000 / _size.sites),
                              std::chrono::microseconds(10'000));
  auto next = Clock::now();
  for (std::uint64_t count = 1; !_isEnding; ++count)
    for (int site = 0; site < _size.sites && !_isEnding; ++site) {
      std::this_thread::sleep_until(next += pause);
      say(site, count);
    }
}

void SiteFleet::say(int site, std::uint64_t count) {
  const std::int64_t published = _published[static_cast<std::size_t>(site)];
  const std::string text =
      aliveText({.run = runOf(site),
                 .count = count,
                 .period = std::max(std::chrono::milliseconds(1'000),
                                    std::chrono::milliseconds(10 * _size.sites)),
                 .newest = published,
                 .published = published,
                 .version = "fleet"});
  natsConnection_PublishString(_ends->sites[static_cast<std::size_t>(site)]->get(),
                               aliveSubject(siteName(site)).c_str(), text.c_str());
}

SiteFleet::Row SiteFleet::rowOf(int site, std::int64_t number) const {
  const int source = static_cast<int>((number - 1) % _size.sourcesOfSite);
  const Epoch run = runOf(site);
  return {rowSubject(siteName(site), "FLEET", groupName(source % groups)),
          rowHeaderText({{run, number},
                         {run, number - 1},
                         firstTime + number * 1'000,
                         source + 1,
                         "host" + std::to_string(source)}),
          dataMessage(source + 1, {{"load1", 'D', "1.50"},
                                   {"number", 'N', bytesOf(static_cast<ZORA_Long>(number))}})};
}

void SiteFleet::answer(const std::string& subject, const std::string& request, const char* asker) {
  ++_questions;
  int site = 0;
  while (site < _size.sites && fetchSubject(siteName(site)) != subject) ++site;
  const auto names = parseFetchRequest(request);
  if (site == _size.sites || !names) return;
  std::int64_t asked = 0;
  for (const RowName& each : *names)
    if (each.epoch == runOf(site)) asked = std::max(asked, each.number);
  const std::int64_t all =
      std::max<std::int64_t>(_published[static_cast<std::size_t>(site)], asked);
  const std::int64_t last = std::min(all, asked + mostRowsOfAnswer);
  const auto send = [&](const NatsMessage& message) {
    natsConnection_PublishMsg(_ends->rows->get(), message.get());  // any may get lost
  };
  for (std::int64_t number = asked + 1; number <= last; ++number) {
    const Row row = rowOf(site, number);
    const NatsMessage message = messageFor(asker, row.body);
    setHeader(message, "Zord-Row", row.header);
    setHeader(message, "Zord-Subject", row.subject);
    send(message);
  }
  const NatsMessage end = messageFor(asker, "");
  setHeader(end, "Zord-Fetched",
            fetchEndText({{runOf(site), last},
                          static_cast<std::uint64_t>(last - asked),
                          last == all,
                          runOf(site)}));
  send(end);
}

}  // namespace dch::testkit
