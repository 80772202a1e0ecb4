// The command line, start and end of the real program.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include "dch/net/descriptor.h"
#include "dch/testkit/clients.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/server_process.h"
#include "tests/support/sockets.h"
#include "tests/support/temporary_files.h"

namespace dch::testkit {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

TEST(ZordchdCommandLineTest, PrintsHelpWithAnExample) {
  for (const char* option : {"-h", "--help"}) {
    const ProcessResult result = runServer({option});
    EXPECT_EQ(result.exitStatus, 0);
    for (const char* text : {"--port", "--bind", "--instance", "--actions", "--verbose", "Example"})
      EXPECT_THAT(result.standardOutput, HasSubstr(text));
    EXPECT_EQ(result.standardError, "");
  }
}

TEST(ZordchdCommandLineTest, PrintsItsVersion) {
  for (const char* option : {"-V", "--version"}) {
    const ProcessResult result = runServer({option});
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(result.standardOutput, MatchesRegex("zordchd [0-9]+\\.[0-9]+\\.[0-9]+\n"));
  }
}

TEST(ZordchdCommandLineTest, RefusesAWrongCommandLine) {
  for (const ServerProcess::Arguments& arguments :
       {ServerProcess::Arguments{"--port", "65536"}, {"--bind", "nowhere"}, {"--what"}}) {
    const ProcessResult result = runServer(arguments);
    EXPECT_EQ(result.exitStatus, EX_USAGE);
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_THAT(result.standardError, StartsWith("zordchd: "));
    EXPECT_THAT(result.standardError, HasSubstr(arguments.back()));
  }
}

TEST(ZordchdCommandLineTest, SaysWhereItIsReadyAndWhereItsStateIs) {
  ServerProcess server;
  EXPECT_EQ(server.stop(SIGTERM), 0);
  EXPECT_THAT(server.standardOutput(),
              MatchesRegex("zordchd [0-9.]+: ready on 127\\.0\\.0\\.1 port [0-9]+\n"
                           "zordchd: state in memory\n"));
  EXPECT_THAT(server.standardOutput(), HasSubstr("port " + std::to_string(server.port()) + "\n"));
}

TEST(ZordchdCommandLineTest, EndsWithStatus0OnSIGTERMAndOnSIGINT) {
  for (const int signal : {SIGTERM, SIGINT}) {
    ServerProcess server;
    UdpClient client(server.port());
    EXPECT_EQ(statusOf(client.ask(registerMessage())), 0);
    EXPECT_EQ(server.stop(signal), 0) << signal;
  }
}

TEST(ZordchdCommandLineTest, KeepsSignalsThatComeBeforeItCanHandleThem) {
  ServerProcess server({}, [] {
    sigset_t early;
    sigemptyset(&early);
    for (const int each : {SIGHUP, SIGUSR1}) sigaddset(&early, each);
    sigprocmask(SIG_BLOCK, &early, nullptr);
    // They wait for the program that this process becomes.
    for (const int each : {SIGHUP, SIGUSR1}) raise(each);
  });
  EXPECT_TRUE(server.waitForError("rows_received 0\n")) << "the report that SIGUSR1 asks for";
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST(ZordchdCommandLineTest, EndsOnASignalInTheMiddleOfAMessage) {
  ServerProcess server;
  TcpClient client(server.port());
  EXPECT_EQ(statusOf(client.ask(registerMessage())), 0);
  client.send(registerMessage().substr(0, 10));
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST(ZordchdCommandLineTest, ServesWithoutStandardInput) {
  // With descriptor 0 free a socket could get the number that stands for no connection.
  ServerProcess server({}, [] { close(STDIN_FILENO); });
  TcpClient client(server.port());
  EXPECT_EQ(statusOf(client.ask(registerMessage())), 0);
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST(ZordchdCommandLineTest, ServesWhenItCannotSaySoOnStandardOutput) {
  Process server("/bin/sh",
                 {"-c", "exec \"$0\" --port 0 --store memory > /dev/full", serverPath()});
  const std::string said = server.waitForError("state in memory\n");
  EXPECT_THAT(said, StartsWith("zordchd: warning: cannot write to standard output: No space"));
  const UdpClient client(portIn(said.substr(said.find('\n') + 1)));
  EXPECT_EQ(statusOf(client.ask(registerMessage())), 0);
  server.signal(SIGTERM);
  EXPECT_EQ(server.finish().exitStatus, 0);
}

TEST(ZordchdCommandLineTest, ServesWhenNobodyReadsItsStandardOutputAndThatIsFull) {
  const TemporaryFolder folder;
  const std::string path = folder.path() + "/output";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const Descriptor output(open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  while (write(output.get(), path.data(), 1) == 1) {
  }
  Process server("/bin/sh",
                 {"-c", "exec \"$0\" --port 0 --store memory > \"$1\"", serverPath(), path});
  const std::string said = server.waitForError("state in memory\n");
  EXPECT_THAT(said, StartsWith("zordchd: warning: cannot write to standard output: nobody reads"));
  server.signal(SIGTERM);
  EXPECT_EQ(server.finish().exitStatus, 0);
}

TEST(ZordchdCommandLineTest, TellsClientsOfItsPortOnlyWhenItServesIt) {
  const DatagramSocket taken;
  const std::string port = std::to_string(ntohs(taken.address().sin_port));
  const std::string before = "0=1\n22=" + port + "\n23=1\n";
  const TemporaryFile settings(before);
  const Process::Environment environment{{"ZOR0_PRODUCT_SPEC", settings.path()}};
  EXPECT_EQ(runServer({"--store", "/nowhere/state.db"}, environment).exitStatus, EX_CONFIG);
  EXPECT_EQ(contentOf(settings.path()), before);

  Process server(serverPath(), {"--store", "memory"}, environment);
  const int served = portIn(server.waitForOutput("state in memory\n"));
  EXPECT_THAT(contentOf(settings.path()), HasSubstr("22=" + std::to_string(served) + "\n"));
  server.signal(SIGTERM);
  EXPECT_EQ(server.finish().exitStatus, 0);
}

TEST(ZordchdCommandLineTest, SaysWhyItCannotHaveAPortThatIsInUse) {
  ServerProcess server;
  const ProcessResult second = runServer({"--port", std::to_string(server.port())});
  EXPECT_EQ(second.exitStatus, 1);
  EXPECT_EQ(second.standardOutput, "");
  EXPECT_THAT(second.standardError, HasSubstr("DCH port " + std::to_string(server.port())));
  EXPECT_THAT(second.standardError, HasSubstr("already active"));
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST(ZordchdCommandLineTest, SaysWhyItCannotHaveAnAddressThatTheMachineDoesNotHave) {
  for (const char* port : {"0", "1919"}) {
    const ProcessResult result = runServer({"--port", port, "--bind", "192.0.2.1"});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(result.standardError, HasSubstr("192.0.2.1"));
    EXPECT_THAT(result.standardError, HasSubstr("Cannot assign requested address"));
  }
}

TEST(ZordchdCommandLineTest, RefusesAConfiguredPortThatIsNoNumber) {
  const ProcessResult result = runServer({}, {{"ZORA_DCH_PORT", "web"}});
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_THAT(result.standardError, HasSubstr("port"));
}

TEST(ZordchdCommandLineTest, ServesTheAddressThatIsAskedFor) {
  ServerProcess server({"--bind", "0.0.0.0"});
  EXPECT_THAT(server.standardOutput(), HasSubstr("ready on 0.0.0.0 port "));
  UdpClient client(server.port());
  EXPECT_EQ(statusOf(client.ask(registerMessage())), 0);
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST(ZordchdCommandLineTest, AnInstanceServesItsPort) {
  ServerProcess server({"--instance", "second"});
  UdpClient client(server.port());
  EXPECT_EQ(statusOf(client.ask(registerMessage())), 0);
  EXPECT_EQ(server.stop(SIGTERM), 0);
}

}  // namespace
}  // namespace dch::testkit
