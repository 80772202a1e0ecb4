// zordp run while its server dies and another one takes its place.
#include <gmock/gmock.h>
#include <signal.h>

#include <atomic>
#include <optional>

#include "dch/testkit/server_process.h"
#include "tests/network/faulty_network.h"
#include "tests/support/messages.h"
#include "tests/support/text_count.h"
#include "tools/testkit/run_fixture.h"
#include "zordchcl/messages.h"

namespace network {
namespace {

using dch::testkit::ServerProcess;
using ::testing::HasSubstr;

constexpr int rowsOfEach = 40;

class RunThroughADeath : public ::testing::Test {
 protected:
  // Two sources send rows that are numbered from 1. When so many rows have come, nothing gets
  // through any more, and the server is killed; another one goes on with that file of the state.
  void run(const std::string& secondState) {
    std::optional<ServerProcess> server(std::in_place, arguments(_folder.path() + "/first.db"));
    std::atomic<int> rows{0};
    FaultyNetwork network(server->port(), [&](const Passing& passing) {
      if (passing.direction == Direction::toDch && requestCode(passing.bytes) == DCH_REQUEST_DATA)
        ++rows;
      return rows > rowsOfEach ? lost : once;
    });
    const std::string count = "i=0; while [ $i -lt " + std::to_string(rowsOfEach) +
                              " ]; do i=$((i+1)); echo $i; done; exec sleep 100";
    tools::RunningZordp zordp(tools::rowsTable("sky", count, "columns = ['clouds']") +
                                  tools::rowsTable("wind", count, "columns = ['speed']"),
                              tools::environmentFor(network.port(), "1"));
    zordp->waitForError("zordp: the DCH does not answer; trying again\n");
    server->stop(SIGKILL);
    server.emplace(arguments(_folder.path() + "/" + secondState));
    network.leadTo(server->port());
    network.setFaults(noFaults());
    // The last row of each, and its application's end.
    ASSERT_TRUE(waitUntil(
        [&] {
          _sky = history(*server, "sky", "clouds");
          _wind = history(*server, "wind", "speed");
          return !_sky.empty() && _sky.back() == rowsOfEach && !_wind.empty() &&
                 _wind.back() == rowsOfEach;
        },
        tools::runPatience));
    _said = zordp.stop().standardError;
  }

  // From the first that is there to the last each is there, in order, once or twice.
  static void expectNoGap(const std::vector<int>& rows, int first) {
    int expected = first;
    for (const int each : rows) {
      if (each == expected - 1) continue;
      EXPECT_EQ(each, expected);
      expected = each + 1;
    }
    EXPECT_EQ(expected, rowsOfEach + 1);
  }

  std::vector<int> _sky, _wind;
  std::string _said;

 private:
  static ServerProcess::Arguments arguments(const std::string& state) {
    return {"--store", state, "--web", "127.0.0.1:0"};
  }

  static std::vector<int> history(ServerProcess& server, const std::string& group,
                                  const std::string& attribute) {
    const ProcessResult result =
        tools::runProgram(ZORDC_PATH,
                          {"history", "WEATHER", group, "--since", "-24h", "--format", "jsonl",
                           "--web", "http://127.0.0.1:" + std::to_string(server.pagePort()) + "/"},
                          {});
    std::vector<int> rows;
    std::istringstream lines(result.standardOutput);
    for (std::string line; std::getline(lines, line);)
      rows.push_back(nlohmann::json::parse(line).at(attribute));
    return rows;
  }

  const TemporaryFolder _folder;
};

TEST_F(RunThroughADeath, NoRowIsMissingFromTheServersFile) {
  run("first.db");
  expectNoGap(_sky, 1);
  expectNoGap(_wind, 1);
}

TEST_F(RunThroughADeath, AServerThatKnowsNothingIsToldAnewAndGetsTheRest) {
  run("second.db");
  ASSERT_FALSE(_sky.empty() || _wind.empty());
  // The first server had the rest, which are as many as it acknowledged.
  EXPECT_LE(_sky.front() - 1 + _wind.front() - 1, rowsOfEach);
  expectNoGap(_sky, _sky.front());
  expectNoGap(_wind, _wind.front());
  EXPECT_EQ(countOf("zordp: the DCH has started anew: registered again\n", _said), 1) << _said;
}

}  // namespace
}  // namespace network
