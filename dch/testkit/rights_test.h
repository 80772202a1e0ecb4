// rights_test.h: two sites and a hub, with the rights that docs/nats.md gives them.
#ifndef DCH_TESTKIT_RIGHTS_TEST_H
#define DCH_TESTKIT_RIGHTS_TEST_H

#include <gtest/gtest.h>

#include <chrono>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "dch/testkit/documented_nats.h"
#include "dch/testkit/documented_site.h"
#include "dch/testkit/link_test.h"
#include "dch/testkit/nats_user.h"
#include "dch/testkit/tcp_gate.h"
#include "tests/support/wait_until.h"

namespace dch::testkit {

class RightsTest : public ::testing::Test {
 protected:
  explicit RightsTest(const std::string& users) : _nats(users) {}

  void TearDown() override {
    if (HasFailure()) std::cout << _nats.server().log();
  }

  // What the server says that it has refused; but a site that finds no stream may ask for one.
  std::vector<std::string> violations() const {
    std::vector<std::string> found;
    std::istringstream lines(_nats.server().log());
    for (std::string line; std::getline(lines, line);)
      if (line.find("Violation") != std::string::npos &&
          line.find("$JS.API.STREAM.CREATE.ZORD_ROWS") == std::string::npos)
        found.push_back(line);
    return found;
  }

  // A look costs the hub some time, too.
  ::testing::AssertionResult hubComesToHave(const std::string& rows) {
    const auto hasAll = [&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      return _hub.kept() == rows;
    };
    if (waitUntil(hasAll, linkPatience)) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "it has\n"
                                         << _hub.kept() << "and says\n"
                                         << _hub.process().standardError();
  }

  DocumentedNats _nats;
  TcpGate _gate{_nats.server().port()};
  DocumentedSite _west{_nats, _gate.port(), "west"};
  DocumentedSite _east{_nats, _gate.port(), "east"};
  DocumentedSite _hub{_nats, _gate.port(), "hub", DocumentedSite::Keeps::rowsOfAllSites};
};

// With each of the files of users that the page shows.
class EachFileOfUsersTest : public RightsTest, public ::testing::WithParamInterface<const char*> {
 protected:
  EachFileOfUsersTest() : RightsTest(documented(std::string("file: ") + GetParam())) {}

  bool hasAccounts() const { return GetParam() == std::string("accounts.conf"); }
};

inline std::string fileOfUsers(const ::testing::TestParamInfo<const char*>& file) {
  return std::string(file.param).substr(0, std::string(file.param).find('.'));
}

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_RIGHTS_TEST_H
