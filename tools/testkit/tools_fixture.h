// tools_fixture.h: the tools around a running zordchd.
#ifndef TOOLS_TESTKIT_TOOLS_FIXTURE_H
#define TOOLS_TESTKIT_TOOLS_FIXTURE_H

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>

#include "tests/support/process.h"
#include "tests/support/temporary_files.h"

namespace tools {

using Arguments = Process::Arguments;
using Environment = Process::Environment;

inline constexpr char registrationText[] =
    "appl:WEATHER,WTH; type:SOCK; help:What the sky does;\n"
    "group:sky; attr:clouds,G,4,eighths; attr:note,T,20; attr:rain,C,8; attr:small,I,2;\n"
    "group:odd; attr:size3,G,3;\n";

// A server, zordchd or a scripted one, on this port of the loopback interface.
inline Environment environmentFor(int port, const std::string& timeoutSeconds = "10") {
  return {{"ZORA_DCH_ADDR", "127.0.0.1"},
          {"ZORA_DCH_PORT", std::to_string(port)},
          {"ZORA_DCH_TIMEOUT", timeoutSeconds},
          {"LC_ALL", "C.UTF-8"}};
}

// Runs a program to its end without input.
inline ProcessResult runProgram(const std::string& path, const Arguments& arguments,
                                const Environment& environment) {
  return Process(path, arguments, environment).finish();
}

// A server of its own for each test, which has subscribed consumers and sends rows of one group.
class ToolsTest : public ::testing::Test {
 protected:
  explicit ToolsTest(const Arguments& moreForServer = {})
      : _server(ZORDCHD_PATH, serverArguments(moreForServer), {}) {
    const std::string ready = _server.waitForOutput("\n");
    _port = std::stoi(ready.substr(ready.find(" port ") + 6));
  }
  ~ToolsTest() override {
    _server.signal(SIGTERM);
    EXPECT_EQ(_server.finish().exitStatus, 0);
  }

  Environment environment() const { return environmentFor(_port); }

  using Output = Process::Output;
  std::unique_ptr<Process> startSending(const Arguments& more,
                                        Output output = Output::captured) const {
    Arguments arguments{"send", "-r", _registration.path(), "-g", "sky", "-s", "roof"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return std::make_unique<Process>(ZORDP_PATH, arguments, environment(), output);
  }

  ProcessResult send(std::string_view rows, const std::string& format = "csv") const {
    const TemporaryFile input(rows);
    return startSending({"-i", input.path(), "-F", format})->finish();
  }

  // A consumer that the server knows when this returns.
  std::unique_ptr<Process> startWatching(const std::string& appl, const std::string& group,
                                         const Arguments& more) {
    Arguments arguments{"watch", appl, group};
    arguments.insert(arguments.end(), more.begin(), more.end());
    auto watcher = std::make_unique<Process>(ZORDC_PATH, arguments, environment());
    _server.waitForError("zordchd: subscribed ", ++_subscriptions);
    return watcher;
  }
  std::unique_ptr<Process> startWatching(const Arguments& more) {
    return startWatching("WEATHER", "sky", more);
  }

  // What zordc does when it is run to its end without input.
  ProcessResult zordc(const Arguments& arguments) const {
    return runProgram(ZORDC_PATH, arguments, environment());
  }

  Process _server;
  int _port = 0;
  int _subscriptions = 0;
  const TemporaryFile _registration{registrationText};

 private:
  static Arguments serverArguments(const Arguments& more) {
    Arguments arguments{"--port", "0", "--verbose"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }
};

}  // namespace tools

#endif  // TOOLS_TESTKIT_TOOLS_FIXTURE_H
