// zordp run as a service of systemd.
#include <gmock/gmock.h>

#include <atomic>

#include "dch/testkit/notify_socket.h"
#include "tests/support/scripted_dch.h"
#include "tools/testkit/requests.h"
#include "tools/testkit/run_fixture.h"

namespace tools {
namespace {

using dch::testkit::NotifySocket;

TEST(RunService, IsReadyWhenAllSourcesAreOnLineAndTellsHowItDoes) {
  const TemporaryFolder folder;
  const NotifySocket manager(folder.path() + "/notify");
  std::atomic<int> requests{0};
  std::atomic<bool> isSecondOnLine{false};
  const ScriptedDch dch([&](const std::string& request) -> std::vector<std::string> {
    if (requestCode(request) != DCH_REQUEST_ONLINE) return {statusAnswer(0)};
    // The second source is not answered at first.
    if (++requests == 2) {
      EXPECT_FALSE(manager.hasMessage()) << "ready too early";
      return {};
    }
    isSecondOnLine = requests > 2;
    return {onlineAnswer(0, requests > 2 ? 2 : 1)};
  });
  Environment environment = environmentFor(dch.port(), "10");
  environment["NOTIFY_SOCKET"] = manager.name();
  const CommandInput input;
  RunningZordp zordp(rowsTable("sky", "cat " + input.path(), "columns = ['clouds']") +
                         rowsTable("wind", "echo \"<$NOTIFY_SOCKET>\" >&2", once),
                     environment);
  EXPECT_EQ(manager.receive(), "READY=1");
  EXPECT_TRUE(isSecondOnLine);
  EXPECT_EQ(manager.receive(), "STATUS=0 rows sent");
  zordp->waitForError("<>\n");  // what the command sees of the variable
  input.write("1\n");
  EXPECT_EQ(manager.receive(), "STATUS=1 row sent");
  EXPECT_EQ(zordp.stop().exitStatus, 128 + SIGTERM);
  EXPECT_EQ(manager.receive(), "STOPPING=1");
  EXPECT_FALSE(manager.hasMessage());
}

}  // namespace
}  // namespace tools
