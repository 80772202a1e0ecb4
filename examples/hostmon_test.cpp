// The example as its reader runs it: rows that arrive, and the troubles that it lives through.
#include <gmock/gmock.h>
#include <signal.h>

#include <nlohmann/json.hpp>

#include "tests/support/scripted_dch.h"
#include "tools/testkit/requests.h"
#include "tools/testkit/tools_fixture.h"
#include "zordchcl/status.h"

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
using tools::environmentFor;
using tools::runProgram;

class Hostmon : public tools::ToolsTest {
 protected:
  ProcessResult run(const tools::Arguments& arguments) const {
    return runProgram(HOSTMON_PATH, arguments, environment());
  }
};

nlohmann::json valuesOf(const std::string& line) {
  return nlohmann::json::parse(line.substr(0, line.find('\n')))["values"];
}

TEST_F(Hostmon, ItsRowsArriveInAllGroups) {
  const auto load = startWatching("HOSTMON", "load", {"-C", "2", "-F", "jsonl"});
  const auto memory = startWatching("HOSTMON", "memory", {"-C", "2", "-F", "jsonl"});
  const auto network = startWatching("HOSTMON", "network", {"-C", "1", "-F", "jsonl"});
  EXPECT_EQ(run({"--count", "2", "--interval", "1"}).exitStatus, 0);

  const nlohmann::json loads = valuesOf(load->finish().standardOutput);
  for (const char* name : {"load1", "load5", "load15"})
    EXPECT_GE(loads.at(name).get<int>(), 0) << name;
  const nlohmann::json kilobytes = valuesOf(memory->finish().standardOutput);
  EXPECT_GT(kilobytes.at("total").get<long long>(), 1000);
  EXPECT_LE(kilobytes.at("available"), kilobytes.at("total"));
  EXPECT_GE(kilobytes.at("swapfree").get<long long>(), 0);
  const nlohmann::json traffic = valuesOf(network->finish().standardOutput);
  EXPECT_NE(traffic.at("interface").get<std::string>(), "");
  EXPECT_GE(traffic.at("received").get<long long>(), 0);
  EXPECT_GE(traffic.at("sent").get<long long>(), 0);
  _server.waitForError("unregistered HOSTMON");
}

TEST_F(Hostmon, ASignalEndsItInGoodOrder) {
  for (const int signal : {SIGINT, SIGTERM}) {
    Process hostmon(HOSTMON_PATH, {}, environment());
    hostmon.waitForError(" is on line\n");
    hostmon.signal(signal);
    EXPECT_EQ(hostmon.finish().exitStatus, 0);
  }
  const std::string events = _server.waitForError("unregistered HOSTMON", 2);
  EXPECT_THAT(events, HasSubstr("off line: handle 3"));
}

TEST(HostmonAlone, RegistersAgainWhenTheDchHasForgottenIt) {
  bool forgotten = false;
  ScriptedDch dch([&](const std::string& request) -> std::vector<std::string> {
    if (requestCode(request) == DCH_REQUEST_ONLINE) return {onlineAnswer(0, 1)};
    if (requestCode(request) != DCH_REQUEST_DATA || forgotten) return {statusAnswer(0)};
    forgotten = true;
    return {statusAnswer(DCH_STATUS_UNKNOWN_HANDLE)};
  });
  const ProcessResult result = runProgram(HOSTMON_PATH, {"-c", "1"}, environmentFor(dch.port()));
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_THAT(result.standardError,
              HasSubstr("hostmon: sending a row: the DCH does not know us any more (status 104)\n"
                        "hostmon: registering again in 1 s\n"));
  int registrations = 0;
  for (const std::string& request : dch.requests())
    registrations += requestCode(request) == DCH_REQUEST_REGISTER;
  EXPECT_EQ(registrations, 2);
}

TEST(HostmonAlone, KeepsTryingWhileTheDchDoesNotAnswer) {
  int requests = 0;
  ScriptedDch dch([&](const std::string& request) -> std::vector<std::string> {
    if (++requests <= 2) return {};
    if (requestCode(request) == DCH_REQUEST_ONLINE) return {onlineAnswer(0, 1)};
    return {statusAnswer(0)};
  });
  const ProcessResult result =
      runProgram(HOSTMON_PATH, {"-c", "1"}, environmentFor(dch.port(), "1"));
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_THAT(result.standardError,
              HasSubstr("hostmon: registration: the DCH does not answer (status 5)\n"));
  EXPECT_THAT(result.standardError, HasSubstr(" is on line\n"));
}

TEST(HostmonAlone, TellsHowItIsUsed) {
  const ProcessResult help = runProgram(HOSTMON_PATH, {"--help"}, {});
  EXPECT_EQ(help.exitStatus, 0);
  EXPECT_THAT(help.standardOutput, StartsWith("Usage: hostmon [--interval SECONDS] [--count N]\n"));
  for (const char* wrong : {"0", "-1", "x", "", "99999999999"}) {
    const ProcessResult result = runProgram(HOSTMON_PATH, {"--count", wrong}, {});
    EXPECT_EQ(result.exitStatus, 64) << wrong;
    EXPECT_EQ(result.standardError, "hostmon: --count wants a number from 1 to 2147483647, not '" +
                                        std::string(wrong) + "'\n");
  }
  EXPECT_EQ(runProgram(HOSTMON_PATH, {"--nonsense"}, {}).exitStatus, 64);
  const ProcessResult extra = runProgram(HOSTMON_PATH, {"5"}, {});
  EXPECT_EQ(extra.exitStatus, 64);
  EXPECT_EQ(extra.standardError, "hostmon: unexpected argument '5'\n");
}

}  // namespace
