// The real program is killed again and again while many send: all that it acknowledged is there.
// ZORD410_SERVER_DEATHS sets how often it dies, ZORD410_SEED when.
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <list>
#include <optional>
#include <set>
#include <sstream>

#include "dch/testkit/kept_rows.h"
#include "dch/testkit/numbered_sender.h"
#include "dch/testkit/server_process.h"
#include "dch/testkit/store_test.h"
#include "tests/support/temporary_files.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {
namespace {

constexpr int senderCount = 64;
constexpr int streamsEvery = 8;  // so many senders to one that sends over a connection
constexpr std::chrono::seconds longestTakeoff{50};

unsigned numberFrom(const char* variable, unsigned otherwise) {
  const char* const given = std::getenv(variable);
  return given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : otherwise;
}

class ZordchdDeathTest : public ::testing::Test {
 protected:
  ZordchdDeathTest() { begin(); }
  ~ZordchdDeathTest() override { _senders.clear(); }

  std::vector<std::string> arguments() const { return {"--store", _path, "--verbose"}; }

  // Another test's server may have the port for a moment.
  void begin() {
    std::string failure;
    const int port = _server ? _server->port() : 0;
    const bool hasBegun = waitUntil(
        [&] {
          try {
            _server.emplace(arguments(), nullptr, port);
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

  void start(unsigned senders) {
    for (unsigned number = 0; number < senders; ++number)
      _senders.emplace_back(static_cast<int>(number),
                            number % streamsEvery == 0 ? NumberedSender::Carrier::stream
                                                       : NumberedSender::Carrier::datagrams,
                            _server->port(), _lives, _random());
  }

  void die() {
    EXPECT_EQ(_server->stop(SIGKILL), -SIGKILL);
    noteDeferrals();
  }

  // What it says of a deferral it says when that is kept.
  void noteDeferrals() {
    std::istringstream lines(_server->standardError());
    constexpr std::string_view before = "deferred: action ";
    for (std::string line; std::getline(lines, line);)
      if (const std::size_t at = line.find(before); at != std::string::npos)
        _deferred.insert(std::stol(line.substr(at + before.size())));
  }

  // A start that comes to an early end.
  void dieWhileStarting() {
    Process process(ZORDCHD_PATH, {"--port", std::to_string(_server->port()), "--store", _path});
    std::this_thread::sleep_for(std::chrono::microseconds(_random() % 20'000));
    process.signal(SIGKILL);
    process.finish();
  }

  // Waits until every sender has had a row acknowledged in this life.
  bool allSend() {
    return waitUntil(
        [this] {
          return std::all_of(_senders.begin(), _senders.end(), [this](const NumberedSender& each) {
            return each.lastLife() == _lives || !each.failure().empty();
          });
        },
        longestTakeoff);
  }

  // Compares the file, as somebody else reads it, with what the senders were told.
  KeptRows compareWithFile() {
    KeptRows found;
    std::set<ZORA_Long> handles;
    for (const NumberedSender& sender : _senders) {
      const SenderBook book = sender.book();
      // One that is not registered has not come to rows.
      if (book.version > 0) compareRows(_path, book.application + ".rows", book.sources, &found);
      for (const SourceBook& source : book.sources) {
        if (source.handle == 0) continue;
        EXPECT_TRUE(handles.insert(source.handle).second) << "two have handle " << source.handle;
        EXPECT_EQ(query(_path, "SELECT handle FROM sources WHERE application = '" +
                                   book.application + "' AND source = '" + source.name + "'"),
                  std::to_string(source.handle) + "\n");
      }
    }
    compareDeferrals();
    EXPECT_EQ(found.lost, 0u);
    EXPECT_EQ(found.doubled, 0u);
    EXPECT_EQ(found.outOfOrder, 0u);
    EXPECT_EQ(found.strange, 0u);
    return found;
  }

  void compareDeferrals() {
    std::multiset<long> kept;
    std::istringstream lines(query(_path, "SELECT action_id FROM deferrals"));
    for (long id; lines >> id;) kept.insert(id);
    std::set<long> sent;
    for (const NumberedSender& sender : _senders)
      for (const ZORA_Long id : sender.book().deferred) sent.insert(id);
    for (const long id : _deferred) EXPECT_EQ(kept.count(id), 1u) << "deferral " << id;
    for (const long id : kept) EXPECT_TRUE(sent.contains(id)) << "deferral " << id;
  }

  const unsigned _seed = numberFrom("ZORD410_SEED", std::random_device()());
  std::mt19937 _random{_seed};
  const TemporaryFolder _folder;
  const std::string _path = _folder.path() + "/state.db";
  Lives _lives{0};
  std::optional<ServerProcess> _server;
  std::set<long> _deferred;
  std::list<NumberedSender> _senders;
};

TEST_F(ZordchdDeathTest, LosesNothingThatItAcknowledged) {
  const unsigned deaths = numberFrom("ZORD410_SERVER_DEATHS", 6);
  std::cout << "ZORD410_SEED=" << _seed << '\n';
  start(senderCount);
  for (unsigned death = 1; death <= deaths; ++death) {
    std::this_thread::sleep_for(std::chrono::milliseconds(_random() % 300));
    die();
    if (death % 3 == 0) dieWhileStarting();
    // As a rule the next server is the first one that reads the file.
    if (death % (deaths / 5 + 1) == deaths / 5) compareWithFile();
    begin();
  }
  EXPECT_TRUE(allSend());
  std::uint64_t rows = 0;
  for (NumberedSender& sender : _senders) {
    sender.stop();
    EXPECT_EQ(sender.failure(), "");
    rows += sender.rows();
  }
  noteDeferrals();
  const KeptRows found = compareWithFile();
  EXPECT_EQ(found.acknowledged, rows);
  for (NumberedSender& sender : _senders) EXPECT_EQ(sender.compareWithServer(), "");
  EXPECT_EQ(query(_path, "PRAGMA integrity_check"), "ok\n");
  std::cout << deaths << " deaths: " << rows << " rows acknowledged, " << found.acknowledged
            << " found, " << found.lost << " lost, " << found.doubled << " doubled; "
            << found.unanswered << " kept without an answer, " << found.repeated
            << " again when they were sent again; " << _deferred.size() << " deferrals\n";
}

}  // namespace
}  // namespace dch::testkit
