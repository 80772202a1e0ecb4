// web_test.h: a real server with a page, and what is asked of both.
#ifndef DCH_TESTKIT_WEB_TEST_H
#define DCH_TESTKIT_WEB_TEST_H

#include <gtest/gtest.h>
#include <signal.h>

#include <fstream>
#include <string>
#include <vector>

#include "dch/testkit/clients.h"
#include "dch/testkit/http_client.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"
#include "tests/support/temporary_files.h"
#include "zordchcl/status.h"

namespace dch::testkit {

inline constexpr char numbersRegistration[] =
    "appl:NUMBERS,NUM;type:SOCK;help:all kinds;group:all;"
    "attr:total,N,8,all of it;attr:processes,N,4;attr:note,T,200;attr:raw,N,3;";

// A whole number of eight bytes, a text and three bytes that are neither.
inline std::string numbersRow(ZORA_Long handle, std::int64_t total, const std::string& note = "n") {
  return dataMessage(handle, {{"total", 'N', bytesOf(total)},
                              {"note", 'T', note + std::string(1, '\0')},
                              {"raw", 'N', "\x01\xab\xff"}});
}

// The server keeps its state in a file, and ends well at the end of the test.
class WebTest : public ::testing::Test {
 protected:
  explicit WebTest(const ServerProcess::Arguments& more = {}, bool keepsRows = true)
      : _server(arguments(more, keepsRows)), _page(_server.pagePort()) {}
  ~WebTest() override {
    if (_hasEnded) return;
    EXPECT_EQ(_server.stop(SIGTERM), 0) << _server.standardError();
  }

  HttpAnswer get(const std::string& target, const HttpClient::Fields& fields = {}) const {
    return httpGet(_page, target, fields);
  }
  nlohmann::json read(const std::string& target) const {
    const HttpAnswer answer = get(target);
    EXPECT_EQ(answer.status, 200) << answer.body;
    return answer.json();
  }

  std::string ask(const std::string& message) const {
    return UdpClient(_server.port()).ask(message);
  }
  void expectDone(const std::string& message) const {
    EXPECT_EQ(statusOf(ask(message)), DCH_STATUS_OK);
  }
  // Registers NUMBERS and takes the source of it on line.
  ZORA_Long addNumbers(const std::string& source = "one") const {
    expectDone(registerMessage(numbersRegistration, "NUMBERS", "NUM"));
    return handleOf(ask(onlineMessage("NUMBERS", "all", source)));
  }

  // Of /api/state.
  std::int64_t figure(const char* kind, const char* name) const {
    return read("/api/state").at(kind).value(name, std::int64_t{-1});
  }

  // Of the server, in KiB.
  long residentMemory() const {
    std::ifstream status("/proc/" + std::to_string(_server.processId()) + "/status");
    for (std::string line; std::getline(status, line);)
      if (line.starts_with("VmRSS:")) return std::stol(line.substr(6));
    return 0;
  }
  // With a sanitizer of addresses or threads nothing is said of it: they have memory of their own.
  void expectNoMoreMemoryThan([[maybe_unused]] long kibibytes) const {
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(residentMemory(), kibibytes);
#endif
  }

  const TemporaryFolder _folder;
  ServerProcess _server;
  const int _page;
  bool _hasEnded = false;

 private:
  ServerProcess::Arguments arguments(const ServerProcess::Arguments& more, bool keepsRows) const {
    ServerProcess::Arguments all = {"--web", "127.0.0.1:0"};
    if (keepsRows) all.insert(all.end(), {"--store", _folder.path() + "/state.db"});
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_WEB_TEST_H
