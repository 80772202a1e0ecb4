// zordchd dies in the middle of its work, again and again, and is started anew on its port: whoever
// talks to it goes on without being restarted, and says what happened.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>
#include <sstream>
#include <thread>

#include "tests/support/messages.h"
#include "tests/support/sockets.h"
#include "tests/support/text_count.h"
#include "tests/support/variables.h"
#include "tests/support/wait_until.h"
#include "tools/testkit/tools_fixture.h"

namespace {

using ::testing::HasSubstr;

constexpr int kills = 5;
// Much longer than all of it takes on a machine that does nothing else.
constexpr std::chrono::seconds longestWait{50};
// What senders and consumers say when they notice the death, and what when that is over: the DCH
// answers again, or it has started anew.
constexpr char noAnswer[] = ": the DCH does not answer; trying again\n";
constexpr char answersAgain[] = ": the DCH answers again";
constexpr char startedAnew[] = ": the DCH has started anew";
constexpr char registeredAgain[] = "zordp: the DCH has started anew: registered again\n";
constexpr char registration[] = "appl:BEAT,BTT; group:beat; attr:from,T,2; attr:number,G,4;";

// zordchd on a port that stays the same.
class Server {
 public:
  Server() { start("0"); }

  int port() const { return _port; }
  void start() { start(std::to_string(_port)); }
  void waitForStatusSubscriber() { _process->waitForError(" to provider status\n"); }
  void kill() {
    _process->signal(SIGKILL);
    _process->finish();
  }

 private:
  void start(const std::string& port) {
    _process.emplace(ZORDCHD_PATH,
                     tools::Arguments{"--port", port, "--store", "memory", "--verbose"},
                     tools::Environment{});
    const std::string ready = _process->waitForOutput("\n");
    _port = std::stoi(ready.substr(ready.find(" port ") + 6));
  }

  std::optional<Process> _process;  // killed with the object
  int _port = 0;
};

// zordp with rows that never end, numbered from 1.
class Sender {
 public:
  Sender(const std::string& name, const std::string& registrationPath,
         const tools::Environment& environment)
      : _process(ZORDP_PATH, {"send", "-r", registrationPath, "-g", "beat", "-s", name, "--keep"},
                 environment),
        _feeder([this, name] { feed(name); }) {}
  ~Sender() { stop(); }

  int number() const { return _number; }
  Process& process() { return _process; }

  // Ends the rows and waits until all of them are sent.
  ProcessResult finish() {
    stop();
    return _process.finish();
  }

 private:
  void feed(const std::string& name) {
    _process.write("from,number\n");
    while (!_stopping) {
      _process.write(name + "," + std::to_string(++_number) + "\n");
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
  void stop() {
    _stopping = true;
    if (_feeder.joinable()) _feeder.join();
  }

  std::atomic<int> _number{0};
  std::atomic<bool> _stopping{false};
  Process _process;
  std::thread _feeder;
};

// The numbers of a sender's rows, in the order in which a watcher printed them.
std::vector<int> numbersFrom(const std::string& sender, const std::string& output) {
  std::vector<int> numbers;
  std::istringstream lines(output.substr(0, output.rfind('\n') + 1));
  for (std::string line; std::getline(lines, line);) {
    const nlohmann::json values = nlohmann::json::parse(line)["values"];
    if (values["from"] == sender) numbers.push_back(values["number"]);
  }
  return numbers;
}

// The last row of a sender that a watcher has printed whole; nothing when there is none.
std::optional<nlohmann::json> lastRowOf(const std::string& sender, const std::string& output) {
  const std::string whole = output.substr(0, output.rfind('\n') + 1);
  const std::size_t at = whole.rfind("\"from\":\"" + sender + "\"");
  if (at == std::string::npos) return std::nullopt;
  const std::size_t start = whole.rfind('\n', at) + 1;  // 0 for the first line
  return nlohmann::json::parse(whole.substr(start, whole.find('\n', at) - start));
}

int lastHandleOf(const std::string& sender, const std::string& output) {
  const auto row = lastRowOf(sender, output);
  return row ? (*row)["handle"].get<int>() : 0;
}

// The place of what was said last, of two things; 0 when neither was.
std::size_t placeOfLast(const std::string& said, const char* one, const char* other) {
  // What is not there has the highest number; the next one is 0.
  return std::max(said.rfind(one) + 1, said.rfind(other) + 1);
}

// Whether the program is without a DCH, by what it said last.
bool isAway(Process& program) {
  const std::string said = program.waitForError("");
  return said.rfind(noAnswer) + 1 > placeOfLast(said, answersAgain, startedAnew);
}

// How often a number is not higher than the one before it.
int repetitions(const std::vector<int>& numbers) {
  int count = 0;
  for (std::size_t i = 1; i < numbers.size(); ++i) count += numbers[i] <= numbers[i - 1];
  return count;
}

class Death : public ::testing::Test {
 protected:
  Death() { signal(SIGPIPE, SIG_IGN); }

  // Waits until the watcher has shown a row of the sender that is newer than `number`.
  static void waitForNewerRow(Process& watcher, const std::string& sender, int number) {
    EXPECT_TRUE(waitUntil(
        [&] {
          const auto row = lastRowOf(sender, watcher.waitForOutput(""));
          return row && (*row)["values"]["number"].get<int>() > number;
        },
        longestWait))
        << "no row of " << sender << " after " << number << " came";
  }

  void waitUntilRowsFlow() {
    for (Process* const watcher : {&_first, &_second}) {
      waitForNewerRow(*watcher, "a", _a.number());
      waitForNewerRow(*watcher, "b", _b.number());
    }
  }

  // Handles begin anew with the server: who does not notice that it died may send under another
  // one's.
  void letTheServerDieOnce() {
    Process* const all[] = {&_a.process(), &_b.process(), &_first, &_second, &_status};
    _server.kill();
    // They find out, each by itself, before there is a server again. A machine that is held up may
    // have made them say so before.
    for (Process* const one : all)
      EXPECT_TRUE(waitUntil([&] { return isAway(*one); }, longestWait)) << one->waitForError("");
    _server.start();
    for (Process* const one : all)
      EXPECT_TRUE(waitUntil([&] { return !isAway(*one); }, longestWait)) << one->waitForError("");
    // Who comes first registers the application; the other finds it known, and its own handle too
    // when it is given the same one.
    EXPECT_TRUE(waitUntil([&] { return registrations() > 0; }, longestWait));
  }

  int registrations() {
    return countOf(registeredAgain, _a.process().waitForError("")) +
           countOf(registeredAgain, _b.process().waitForError(""));
  }

  Server _server;
  const tools::Environment _environment = tools::environmentFor(_server.port(), "1");
  const TemporaryFile _registration{registration};
  Process _first{ZORDC_PATH, {"watch", "BEAT", "beat", "-F", "jsonl"}, _environment};
  Process _second{ZORDC_PATH, {"watch", "BEAT", "beat", "-F", "jsonl"}, _environment};
  Process _status{ZORDC_PATH, {"status", "-F", "csv"}, _environment};
  Process _hostmon{HOSTMON_PATH, {}, _environment};
  Sender _a{"a", _registration.path(), _environment};
  Sender _b{"b", _registration.path(), _environment};
};

TEST_F(Death, NobodyHasToBeRestarted) {
  const unsigned seed = numberFrom("ZORD410_SEED", std::random_device()());
  std::cout << "ZORD410_SEED=" << seed << '\n';
  std::mt19937 random(seed);
  std::uniform_int_distribution<int> milliseconds(0, 1000);

  waitUntilRowsFlow();
  letTheServerDieOnce();
  int hostmonStarts = 0;
  for (int i = 1; i < kills; ++i) {
    // In full flow, or while they are still busy with the death before.
    if (i % 2 == 1) waitUntilRowsFlow();
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds(random)));
    hostmonStarts = countOf(" is on line\n", _hostmon.waitForError(""));
    letTheServerDieOnce();
  }
  waitUntilRowsFlow();
  _hostmon.waitForError(" is on line\n", hostmonStarts + 1);
  // One that was held up while the server died and came back subscribes again after half a minute.
  _server.waitForStatusSubscriber();

  int resent = 0;
  for (Sender* const sender : {&_a, &_b}) {
    const ProcessResult sent = sender->finish();
    EXPECT_EQ(sent.exitStatus, 0) << sent.standardError;
    resent += countOf("Error: ipcRead with wait[1 second] failed\n", sent.standardError);
  }
  for (Process* const watcher : {&_first, &_second}) {
    watcher->signal(SIGTERM);
    const ProcessResult seen = watcher->finish();
    EXPECT_EQ(seen.exitStatus, 0) << seen.standardError;
    // A row comes again when its answer was lost, and for no other reason.
    EXPECT_LE(repetitions(numbersFrom("a", seen.standardOutput)) +
                  repetitions(numbersFrom("b", seen.standardOutput)),
              resent);
    // The new servers gave out the same handles, in another order perhaps.
    EXPECT_NE(lastHandleOf("a", seen.standardOutput), lastHandleOf("b", seen.standardOutput));
  }
  // Online again is no change; going off line is one.
  EXPECT_EQ(countOf(",online,BEAT,beat,a\n", _status.waitForOutput(",offline,BEAT,beat,b\n")), 1);
  _hostmon.signal(SIGTERM);
  EXPECT_EQ(_hostmon.finish().exitStatus, 0);
  _status.signal(SIGTERM);
  EXPECT_EQ(_status.finish().exitStatus, 0);
}

// The system keeps the port for the connections of the one that died.
TEST(DeathWithConnections, TheNextServerHasItsPortAtOnce) {
  Server server;
  StreamSocket client(server.port());
  client.send(messageOf([](DCH_MessageBuilder& message) {
    message.add(DCH_requestType, short{DCH_REQUEST_UNREGISTER}).add(DCH_applName, "NONE");
  }));
  ASSERT_FALSE(client.receive(1).empty());  // the connection is the server's
  server.kill();
  server.start();
  StreamSocket next(server.port());
  next.send(messageOf([](DCH_MessageBuilder& message) {
    message.add(DCH_requestType, short{DCH_REQUEST_UNREGISTER}).add(DCH_applName, "NONE");
  }));
  EXPECT_FALSE(next.receive(1).empty());
}

}  // namespace
