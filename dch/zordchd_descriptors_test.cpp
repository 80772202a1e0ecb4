// The real program with few descriptors, and at the end of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <list>
#include <string>

#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"
#include "tests/support/descriptor_limit.h"
#include "tests/support/temporary_files.h"
#include "tests/support/wait_until.h"
#include "zordchcl/status.h"

namespace dch::testkit {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr rlim_t fewDescriptors = 56;
constexpr std::size_t fewConnections = 8;  // for which that leaves room

void lowerSoftLimit() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = fewDescriptors;
  setrlimit(RLIMIT_NOFILE, &limit);
}

void lowerHardLimit() {
  const rlimit limit{fewDescriptors, fewDescriptors};
  setrlimit(RLIMIT_NOFILE, &limit);
}

// As a service's sandbox may. Other limits are the sanitizers' to set.
void forbidToRaiseTheLimit() {
  lowerSoftLimit();
  sock_filter rules[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_prlimit64, 0, 5),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[1])),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, RLIMIT_NOFILE, 0, 3),
      // The new limit's address: null to ask for the old one.
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[2])),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog program{std::size(rules), rules};
  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program);
}

bool isServed(TcpClient* client) {
  return statusOf(client->ask(unregisterMessage("NONE"))) == DCH_STATUS_UNKNOWN_APPLICATION;
}

TEST(ZordchdDescriptorsTest, RaisesALowLimitByItself) {
  ServerProcess server({}, lowerSoftLimit);
  std::list<TcpClient> clients;
  for (rlim_t i = 0; i < 2 * fewDescriptors; ++i)
    EXPECT_TRUE(isServed(&clients.emplace_back(server.port()))) << i;
  EXPECT_THAT(server.standardError(), Not(HasSubstr("warning")));
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST(ZordchdDescriptorsTest, SaysSoWhenItMayNotRaiseALowLimit) {
  ServerProcess server({}, forbidToRaiseTheLimit);
  EXPECT_TRUE(server.waitForError("leaves room for " + std::to_string(fewConnections) + " conn"));
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

// As many connections as it has descriptors for.
class AtItsLimitTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!canRunWithoutDescriptors) GTEST_SKIP() << "the sanitizers need descriptors of their own";
    EXPECT_TRUE(_server.waitForError("; raise it to "));
    while (_clients.size() < fewConnections)
      EXPECT_TRUE(isServed(&_clients.emplace_back(_server.port()))) << _clients.size();
  }
  ~AtItsLimitTest() override { EXPECT_EQ(_server.stop(SIGTERM), 0) << _server.standardError(); }

  // Whether all of its threads wait for something.
  bool isIdle() const {
    const std::string directory = "/proc/" + std::to_string(_server.processId()) + "/task";
    for (const auto& thread : std::filesystem::directory_iterator(directory)) {
      std::string number, name, state;
      std::ifstream(thread.path() / "stat") >> number >> name >> state;
      if (state != "S") return false;
    }
    return true;
  }

  void expectDatagramsAreServed() {
    UdpClient client(_server.port());
    EXPECT_EQ(statusOf(client.ask(registerMessage())), DCH_STATUS_OK);
    for (int i = 0; i < 50; ++i)
      EXPECT_TRUE(onlineAnswerOf(client.ask(onlineMessage("HOSTMON", "load", "host1"))));
  }

  const TemporaryFile _actions{"succeed /bin/true\n"};
  ServerProcess _server{{"--verbose", "--actions", _actions.path()}, lowerHardLimit};
  std::list<TcpClient> _clients;
};

TEST_F(AtItsLimitTest, SaysSoWhenItStarts) {
  EXPECT_THAT(_server.standardError(),
              ::testing::ContainsRegex("zordchd: warning: the limit on open files leaves room for "
                                       "8 connections, not 1024; raise it to 1072\n"));
}

TEST_F(AtItsLimitTest, ServesTheConnectionsThatItHas) {
  for (TcpClient& client : _clients) EXPECT_TRUE(isServed(&client));
  expectDatagramsAreServed();
  EXPECT_THAT(_server.standardError(), Not(HasSubstr("dropped")));
}

TEST_F(AtItsLimitTest, StartsActions) {
  UdpClient client(_server.port());
  client.send(actionMessage("succeed", 1));
  EXPECT_EQ(statusOf(client.ask(actionResultsMessage(1))), 0);
}

TEST_F(AtItsLimitTest, TakesAConnectionAgainWhenOneHasEnded) {
  _clients.pop_front();
  EXPECT_TRUE(_server.waitForError(" closed\n"));
  EXPECT_TRUE(isServed(&_clients.emplace_back(_server.port())));
}

TEST_F(AtItsLimitTest, RefusesOneTooManyAndServesTheOthersWithoutHaste) {
  EXPECT_EQ(TcpClient(_server.port()).receive(), "");
  EXPECT_TRUE(_server.waitForError(" refused, 1 so far: 8 are open\n"));
  int timesIdle = 0;  // one after the other
  EXPECT_TRUE(waitUntil([&] {
    timesIdle = isIdle() ? timesIdle + 1 : 0;
    return timesIdle == 20;
  })) << "it turns without end";
  expectDatagramsAreServed();
  for (TcpClient& client : _clients) EXPECT_TRUE(isServed(&client));
}

}  // namespace
}  // namespace dch::testkit
