#include "dch/service/service_manager.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <future>
#include <optional>

#include "dch/testkit/loop_thread.h"
#include "dch/testkit/notify_socket.h"
#include "tests/support/quickest.h"
#include "tests/support/temporary_files.h"

namespace dch {
namespace {

using testkit::NotifySocket;

class ServiceManagerTest : public ::testing::Test {
 protected:
  ServiceManagerTest() { open(_folder.path() + "/notify"); }

  void open(const std::string& name) {
    _socket.reset();
    _socket.emplace(name);
    setenv("NOTIFY_SOCKET", name.c_str(), 1);
  }
  static void watchEvery(std::chrono::microseconds interval, pid_t processId = getpid()) {
    setenv("WATCHDOG_USEC", std::to_string(interval.count()).c_str(), 1);
    setenv("WATCHDOG_PID", std::to_string(processId).c_str(), 1);
  }

  const TemporaryFolder _folder;
  std::optional<NotifySocket> _socket;
  EventLoop _loop;
};

TEST_F(ServiceManagerTest, IsToldEachState) {
  for (const std::string prefix : {"", "@"}) {
    open(prefix + _folder.path() + "/other");
    ServiceManager manager(_loop);
    EXPECT_TRUE(manager.isThere());
    manager.ready();
    manager.reloading();
    manager.ready();
    manager.stopping();
    for (const char* state : {"READY=1", "RELOADING=1", "READY=1", "STOPPING=1"})
      EXPECT_EQ(_socket->receive(), state) << _socket->name();
    EXPECT_FALSE(_socket->hasMessage());
  }
}

TEST_F(ServiceManagerTest, IsToldTheStatusWhenItIsAnotherOne) {
  ServiceManager manager(_loop);
  for (const char* text : {"one", "one", "two", "one"}) manager.showStatus(text);
  for (const char* status : {"STATUS=one", "STATUS=two", "STATUS=one"})
    EXPECT_EQ(_socket->receive(), status);
  EXPECT_FALSE(_socket->hasMessage());
}

TEST_F(ServiceManagerTest, IsLeftOutOfTheEnvironment) {
  watchEvery(std::chrono::seconds(1));
  const ServiceManager manager(_loop);
  for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
    EXPECT_EQ(std::getenv(name), nullptr) << name;
}

TEST_F(ServiceManagerTest, IsNotThereWithoutASocketThatCanBeTold) {
  for (const std::string& name : {std::string("notify"), std::string("vsock:2:1"), std::string(),
                                  std::string(200, '/'), std::string(108, '/')}) {
    setenv("NOTIFY_SOCKET", name.c_str(), 1);
    ServiceManager manager(_loop);
    EXPECT_FALSE(manager.isThere()) << name;
    manager.ready();
    manager.showStatus("status");
  }
  unsetenv("NOTIFY_SOCKET");
  EXPECT_FALSE(ServiceManager(_loop).isThere());
  EXPECT_FALSE(_socket->hasMessage());
}

TEST_F(ServiceManagerTest, IsNotWaitedForAndIsToldTheNewestLater) {
  ServiceManager manager(_loop);
  _socket->fill();
  manager.ready();
  manager.showStatus("one");
  manager.showStatus("two");
  manager.stopping();
  manager.flush();
  _socket->empty();
  manager.flush();
  EXPECT_EQ(_socket->receive(), "STOPPING=1");
  EXPECT_EQ(_socket->receive(), "STATUS=two");
  manager.flush();
  EXPECT_FALSE(_socket->hasMessage());
}

TEST_F(ServiceManagerTest, IsToldLaterWhenItsSocketWasGone) {
  ServiceManager manager(_loop);
  const std::string name = _socket->name();
  _socket.reset();
  manager.ready();
  open(name);
  manager.flush();
  EXPECT_EQ(_socket->receive(), "READY=1");
}

TEST_F(ServiceManagerTest, IsToldOfLifeAtAThirdOfTheInterval) {
  constexpr std::chrono::milliseconds interval(600);
  watchEvery(interval);
  ServiceManager manager(_loop);
  const testkit::LoopThread running(_loop);
  const double seconds = quickest(0.5, [&] {
    EXPECT_EQ(_socket->receive(), "WATCHDOG=1");
    return secondsOf([&] {
      for (int i = 0; i < 2; ++i) EXPECT_EQ(_socket->receive(), "WATCHDOG=1");
    });
  });
  EXPECT_LT(seconds, 0.5);
}

TEST_F(ServiceManagerTest, IsToldOfLifeByTheLoopAlone) {
  watchEvery(std::chrono::milliseconds(30));
  ServiceManager manager(_loop);
  testkit::LoopThread running(_loop);
  std::promise<void> isStuck, goesOn;
  running.post([&] {
    isStuck.set_value();
    goesOn.get_future().wait();
  });
  isStuck.get_future().wait();
  _socket->empty();
  EXPECT_EQ(_socket->tryReceive(200), std::nullopt);
  goesOn.set_value();
  EXPECT_EQ(_socket->receive(), "WATCHDOG=1");
}

TEST_F(ServiceManagerTest, IsNotToldOfLifeUnlessItAsksThisProcess) {
  watchEvery(std::chrono::milliseconds(3), getppid());
  ServiceManager manager(_loop);
  testkit::LoopThread running(_loop);
  EXPECT_EQ(_socket->tryReceive(100), std::nullopt);
}

}  // namespace
}  // namespace dch
