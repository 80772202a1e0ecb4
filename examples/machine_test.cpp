// The example of zordp run: a real df, and a systemctl of the test's own.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdlib>

#include "tools/testkit/run_fixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

class Machine : public tools::ToolsTest {
 protected:
  Process start() const {
    return Process(ZORDP_PATH, {"run", MACHINE_FILE}, withProgram(environment()));
  }

 private:
  // What systemctl prints, with the blanks in which it has its columns.
  tools::Environment withProgram(tools::Environment variables) const {
    chmod(_systemctl.path().c_str(), S_IRWXU);
    variables["PATH"] = _systemctl.folder().path() + ":" + std::getenv("PATH");
    return variables;
  }

  const TemporaryFile _systemctl{
      "#!/bin/sh\n"
      "[ \"$1\" = list-units ] || exit 1\n"
      "echo 'cron.service       loaded active running Regular programs'\n"
      "echo 'boot.mount         loaded inactive dead   /boot'\n",
      "systemctl"};
};

TEST_F(Machine, ItsRowsArriveInBothGroups) {
  const auto disks = startWatching("MACHINE", "disks", {"-F", "jsonl"});
  const auto units = startWatching("MACHINE", "units", {"-C", "2", "-F", "jsonl"});
  Process zordp = start();
  EXPECT_THAT(tools::valuesIn(units->finish().standardOutput),
              ElementsAre(R"({"state":"running","unit":"cron.service"})",
                          R"({"state":"dead","unit":"boot.mount"})"));
  // Of all disks one is sure to be there.
  EXPECT_THAT(disks->waitForOutput("\"mount\":\"/\""), HasSubstr("\"free\":"));
  zordp.signal(SIGTERM);
  EXPECT_THAT(zordp.finish().standardError, Not(HasSubstr("the command")));
}

}  // namespace
