// A client with thousands of open files: each of its waits is on descriptors that a plain set for
// select() has no room for.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>

#include <future>

#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "tests/network/network_test.h"

namespace network {
namespace {

using ::testing::HasSubstr;

constexpr int openFiles = 5000;
static_assert(openFiles > FD_SETSIZE);

// Open as long as the process lives: the pool's sockets, too, stay open.
bool openThatMany() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = std::max<rlim_t>(limit.rlim_cur, openFiles + 200);
  if (setrlimit(RLIMIT_NOFILE, &limit) != 0) return false;
  int last = -1;
  for (int i = 0; i < openFiles; ++i) last = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
  return last >= openFiles;
}

class ManyDescriptorsTest : public NetworkTest {
 protected:
  void SetUp() override {
    setTimeout(20);
    if (!openThatMany()) GTEST_SKIP() << "the hard limit of open files is below 5200";
    DCH_api_init();
  }
};

TEST_F(ManyDescriptorsTest, RequestsAreAnswered) {
  EXPECT_EQ(registerNet(), good);
  ZORA_Long handle = noHandle;
  EXPECT_EQ(goOnline(&handle), good);
  EXPECT_EQ(sendRow(handle, "a row"), good);
  ZORA_Long length = 0;
  char* text = nullptr;
  EXPECT_EQ(dc_getApplHelp(&length, &text, "NET", 20), 0);
  EXPECT_STREQ(text, "Of a test");
  std::free(text);
  EXPECT_EQ(dc_waitForActionResults(1), 106);
}

TEST_F(ManyDescriptorsTest, RowsAreWaitedForAndTheWaitIsCancelled) {
  void* const rows = dc_waitOnDataInitialize("NET", "rows");
  EXPECT_TRUE(_server.waitForError("to NET rows\n"));
  EXPECT_EQ(registerNet(), good);
  ZORA_Long handle = noHandle;
  EXPECT_EQ(goOnline(&handle), good);
  EXPECT_EQ(sendRow(handle, "a row"), good);
  char row[4096] = "";
  EXPECT_EQ(dc_waitOnData(rows, row, sizeof row), 0);
  EXPECT_THAT(std::string(row, sizeof row), HasSubstr("a row"));

  auto wait = std::async(std::launch::async, [&] { return dc_waitOnData(rows, row, sizeof row); });
  EXPECT_EQ(dc_waitOnDataCancel(rows), 0);
  EXPECT_EQ(wait.get(), -1);
  dc_waitOnDataDestroy(rows);
}

TEST_F(ManyDescriptorsTest, ChangesOfStatusAreWaitedFor) {
  void* const changes = dc_waitForDPStatusInitialize();
  EXPECT_TRUE(_server.waitForError("subscribed "));
  EXPECT_EQ(registerNet(), good);
  EXPECT_STREQ(dc_waitForDPStatus(changes), "NET,,,4112");
  EXPECT_EQ(dc_waitForDPStatusDestroy(changes), 0);
}

}  // namespace
}  // namespace network
