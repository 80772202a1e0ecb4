#include "dch/testkit/site_fleet.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <utility>

#include "dch/link/alive_message.h"
#include "dch/link/known_message.h"
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
// Of its first row; the others follow after a millisecond each.
constexpr Time firstTime = 1'769'903'999'000'000;

std::string siteName(int site) {
  return "site" + std::to_string(site);
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
      _providers(size.sites, size.sourcesOfSite),
      _ends(std::make_unique<Ends>()),
      _published(static_cast<std::size_t>(size.sites)),
      _timesSaid(static_cast<std::size_t>(size.sites)) {
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
  const auto knownQuestion = [](natsConnection*, natsSubscription*, natsMsg* next, void* fleet) {
    const NatsMessage message(next);
    if (natsMsg_GetReply(next) != nullptr)
      static_cast<SiteFleet*>(fleet)->answerKnown(natsMsg_GetSubject(next), bodyOf(next),
                                                  natsMsg_GetReply(next));
  };
  _ends->rows = std::make_unique<NatsClient>(_url);
  _ends->subscribe(*_ends->rows, "zord.fetch.*", question, this);
  _ends->subscribe(*_ends->rows, "zord.known.*", knownQuestion, this);
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
  while (!_isEnding)
    for (int site = 0; site < _size.sites && !_isEnding; ++site) {
      std::this_thread::sleep_until(next += pause);
      if (!_isSilent) say(site);
    }
}

void SiteFleet::say(int site) {
  const auto place = static_cast<std::size_t>(site);
  const std::int64_t published = _published[place];
  const std::lock_guard lock(_speech);
  OwnProviders::Changes changes = _providers.changes(site);
  const std::string text =
      aliveText({.run = runOf(site),
                 .count = ++_timesSaid[place],
                 .period = std::max(std::chrono::milliseconds(1'000),
                                    std::chrono::milliseconds(10 * _size.sites)),
                 .newest = published,
                 .published = published,
                 .from = changes.from,
                 .to = changes.to,
                 .version = "fleet",
                 .changes = std::move(changes.text)});
  natsConnection_PublishString(_ends->sites[place]->get(), aliveSubject(siteName(site)).c_str(),
                               text.c_str());
}

void SiteFleet::change(int sites, int sourcesOfSite) {
  for (int count = 0; count < sites; ++count) {
    const int site = _nextToChange++ % _size.sites;
    _providers.change(site, sourcesOfSite);
    say(site);
  }
}

void SiteFleet::resume() {
  _isSilent = false;
  for (int site = 0; site < _size.sites; ++site) say(site);
}

SiteFleet::Row SiteFleet::rowOf(int site, std::int64_t number) const {
  const int place = static_cast<int>((number - 1) % _size.sourcesOfSite);
  const FleetSource source(place);
  const Epoch run = runOf(site);
  return {
      rowSubject(siteName(site), source.application, source.group),
      rowHeaderText(
          {{run, number}, {run, number - 1}, firstTime + number * 1'000, place + 1, source.name}),
      dataMessage(place + 1, {{"load1", 'D', "1.50"},
                              {"number", 'N', bytesOf(static_cast<ZORA_Long>(number))}})};
}

// That has the subject; as many as there are sites when none has.
int SiteFleet::siteOf(const std::string& subject,
                      std::string (*subjectOf)(std::string_view)) const {
  int site = 0;
  while (site < _size.sites && subjectOf(siteName(site)) != subject) ++site;
  return site;
}

void SiteFleet::answer(const std::string& subject, const std::string& request, const char* asker) {
  if (_isSilent) return;
  ++_questions;
  const int site = siteOf(subject, fetchSubject);
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

void SiteFleet::answerKnown(const std::string& subject, const std::string& question,
                            const char* asker) {
  if (_isSilent) return;
  ++_providerQuestions;
  const int site = siteOf(subject, knownSubject);
  const auto key = parseKnownQuestion(question);
  if (site == _size.sites || !key) return;
  const OwnProviders::Piece piece = _providers.answer(site, *key);
  if (piece.revision == 0) return;
  const NatsMessage message = messageFor(asker, piece.text);
  setHeader(message, knownHeaderName, knownHeaderText({runOf(site), piece.revision, piece.isAll}));
  natsConnection_PublishMsg(_ends->rows->get(), message.get());  // it may get lost
  _providerBytes += piece.text.size();
}

}  // namespace dch::testkit
