// dying_server_test.h: a fixture with the real program, which dies while many senders use it, and
// the comparison of what it acknowledged with what is kept.
#ifndef DCH_TESTKIT_DYING_SERVER_TEST_H
#define DCH_TESTKIT_DYING_SERVER_TEST_H

#include <gtest/gtest.h>

#include <chrono>
#include <list>
#include <optional>
#include <random>
#include <set>
#include <string>

#include "dch/testkit/kept_rows.h"
#include "dch/testkit/numbered_sender.h"
#include "dch/testkit/server_process.h"
#include "tests/support/temporary_files.h"

namespace dch::testkit {

// ZORD410_SEED repeats a run.
class DyingServerTest : public ::testing::Test {
 protected:
  DyingServerTest();
  // Ends the senders. What the server wrote last helps to find why something is missing.
  void TearDown() override;

  // Starts the server, on its port from the second time on.
  void begin(const std::string& path, ServerProcess::Arguments moreArguments = {});
  // In the first life.
  void startSenders();
  // SIGKILL: what it told before is noted.
  void die();

  // Waits until every sender has had a row acknowledged in this life.
  bool allSend();
  // Ends the senders. Returns how many of their rows were acknowledged.
  std::uint64_t stopSenders();

  // Compare the file, as somebody else reads it, and the server with what the senders were told.
  KeptRows compareWithFile(const std::string& path);
  void compareWithServer();

  // What was acknowledged, and what was found of it.
  std::string summaryOf(std::uint64_t rows, const KeptRows& found) const;

  const unsigned _seed;
  std::mt19937 _random{_seed};
  std::optional<ServerProcess> _server;

 private:
  void noteDeferrals();
  void compareDeferrals(const std::string& path);
  void compareRegistrations(const std::string& path);
  void compareActions(const std::string& path);

  const TemporaryFile _actions{actionsOfSenders};
  Lives _lives{0};
  std::set<long> _deferred;  // as the server said
  std::size_t _results = 0;  // of actions, that were found
  std::list<NumberedSender> _senders;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_DYING_SERVER_TEST_H
