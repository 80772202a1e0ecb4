#include "dch/testkit/dying_server_test.h"

#include <signal.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <sstream>
#include <stdexcept>

#include "dch/testkit/store_test.h"
#include "tests/support/variables.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {

namespace {

constexpr unsigned senderCount = 64;
constexpr unsigned streamsEvery = 8;  // so many senders to one that sends over a connection
constexpr std::chrono::seconds longestTakeoff{50};

}  // namespace

DyingServerTest::DyingServerTest() : _seed(numberFrom("ZORD410_SEED", std::random_device()())) {
  std::cout << "ZORD410_SEED=" << _seed << '\n';
}

void DyingServerTest::TearDown() {
  _senders.clear();
  if (!HasFailure() || !_server) return;
  constexpr std::size_t shown = 4'000;
  const std::string lines = _server->standardError();
  std::cout << lines.substr(lines.size() - std::min(lines.size(), shown));
}

// Another test's server may have the port for a moment.
void DyingServerTest::begin(const std::string& path, ServerProcess::Arguments moreArguments) {
  moreArguments.insert(moreArguments.end(),
                       {"--store", path, "--actions", _actions.path(), "--verbose"});
  std::string failure;
  const int port = _server ? _server->port() : 0;
  const bool hasBegun = waitUntil(
      [&] {
        try {
          _server.emplace(moreArguments, nullptr, port);
          return true;
        } catch (const std::runtime_error& error) {
          failure = error.what();
          return false;
        }
      },
      longestTakeoff);
  if (!hasBegun) throw std::runtime_error(failure);
  ++_lives;
}

void DyingServerTest::startSenders() {
  for (unsigned number = 0; number < senderCount; ++number)
    _senders.emplace_back(static_cast<int>(number),
                          number % streamsEvery == 0 ? NumberedSender::Carrier::stream
                                                     : NumberedSender::Carrier::datagrams,
                          _server->port(), _lives, _random());
}

void DyingServerTest::die() {
  EXPECT_EQ(_server->stop(SIGKILL), -SIGKILL);
  noteDeferrals();
}

bool DyingServerTest::allSend() {
  return waitUntil(
      [this] {
        return std::all_of(_senders.begin(), _senders.end(), [this](const NumberedSender& each) {
          return each.lastLife() == _lives || !each.failure().empty();
        });
      },
      longestTakeoff);
}

std::uint64_t DyingServerTest::stopSenders() {
  std::uint64_t rows = 0;
  for (NumberedSender& sender : _senders) {
    sender.stop();
    EXPECT_EQ(sender.failure(), "");
    rows += sender.rows();
  }
  noteDeferrals();
  return rows;
}

// What it says of a deferral it says when that is kept.
void DyingServerTest::noteDeferrals() {
  std::istringstream lines(_server->standardError());
  constexpr std::string_view before = "deferred: action ";
  for (std::string line; std::getline(lines, line);)
    if (const std::size_t at = line.find(before); at != std::string::npos)
      _deferred.insert(std::stol(line.substr(at + before.size())));
}

KeptRows DyingServerTest::compareWithFile(const std::string& path) {
  KeptRows found;
  std::set<ZORA_Long> handles;
  for (const NumberedSender& sender : _senders) EXPECT_EQ(sender.failure(), "");
  for (const NumberedSender& sender : _senders) {
    const SenderBook book = sender.book();
    // One that is not registered has not come to rows.
    if (book.version > 0) compareRows(path, book.application + ".rows", book.sources, &found);
    for (const SourceBook& source : book.sources) {
      if (source.handle == 0) continue;
      EXPECT_TRUE(handles.insert(source.handle).second) << "two have handle " << source.handle;
      EXPECT_EQ(query(path, "SELECT handle FROM sources WHERE application = '" + book.application +
                                "' AND source = '" + source.name + "'"),
                std::to_string(source.handle) + "\n");
    }
  }
  compareRegistrations(path);
  compareDeferrals(path);
  compareActions(path);
  EXPECT_EQ(found.lost, 0u);
  EXPECT_EQ(found.doubled, 0u);
  EXPECT_EQ(found.outOfOrder, 0u);
  EXPECT_EQ(found.strange, 0u);
  return found;
}

void DyingServerTest::compareDeferrals(const std::string& path) {
  std::multiset<long> kept;
  std::istringstream lines(query(path, "SELECT action_id FROM deferrals"));
  for (long id; lines >> id;) kept.insert(id);
  std::set<long> sent;
  for (const NumberedSender& sender : _senders)
    for (const ZORA_Long id : sender.book().deferred) sent.insert(id);
  for (const long id : _deferred) EXPECT_EQ(kept.count(id), 1u) << "deferral " << id;
  for (const long id : kept) EXPECT_TRUE(sent.contains(id)) << "deferral " << id;
}

void DyingServerTest::compareRegistrations(const std::string& path) {
  std::set<std::string> registered;
  std::istringstream lines(query(path, "SELECT name FROM applications"));
  for (std::string name; std::getline(lines, name);) registered.insert(name);
  for (const NumberedSender& sender : _senders) {
    const SenderBook book = sender.book();
    if (book.isChanging) continue;
    EXPECT_EQ(registered.contains(book.application), book.isRegistered) << book.application;
  }
}

void DyingServerTest::compareActions(const std::string& path) {
  std::map<ZORA_Long, std::string> kept;
  std::istringstream lines(query(path, "SELECT id, result FROM actions"));
  for (std::string line; std::getline(lines, line);) {
    const std::size_t bar = line.find('|');
    const auto id = static_cast<ZORA_Long>(std::stol(line.substr(0, bar)));
    EXPECT_TRUE(kept.emplace(id, line.substr(bar + 1)).second) << "action " << id << " twice";
  }
  _results = 0;
  for (const NumberedSender& sender : _senders) {
    for (const ActionBook& action : sender.book().actions) {
      if (action.result) {
        EXPECT_EQ(kept[action.id], std::to_string(*action.result)) << "action " << action.id;
        ++_results;
      }
      kept.erase(action.id);
    }
  }
  for (const auto& [id, result] : kept) ADD_FAILURE() << "nobody asked for action " << id;
}

void DyingServerTest::compareWithServer() {
  for (NumberedSender& sender : _senders) EXPECT_EQ(sender.compareWithServer(), "");
}

std::string DyingServerTest::summaryOf(std::uint64_t rows, const KeptRows& found) const {
  unsigned unregistrations = 0;
  for (const NumberedSender& sender : _senders) unregistrations += sender.book().unregistrations;
  std::ostringstream text;
  text << rows << " rows acknowledged, " << found.acknowledged << " found, " << found.lost
       << " lost, " << found.doubled << " doubled; " << found.unanswered
       << " kept without an answer, " << found.repeated << " again when they were sent again; "
       << _deferred.size() << " deferrals, " << _results << " results of actions, "
       << unregistrations << " ends of registrations\n";
  return text.str();
}

}  // namespace dch::testkit
