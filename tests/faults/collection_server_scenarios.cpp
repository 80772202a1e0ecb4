// What the collection server does with each request.
#include <sys/socket.h>

#include <array>
#include <functional>
#include <memory>
#include <utility>

#include "dch/core/core.h"
#include "dch/store/memory_store.h"
#include "dch/testkit/error_log.h"
#include "dch/testkit/messages.h"
#include "tests/faults/scenario.h"
#include "tests/support/sockets.h"
#include "zordchcl/messages.h"

namespace {

using namespace dch::testkit;

// As long as names may be: what is kept of them needs memory of its own.
const std::string application = "HOSTMON-OF-SEVENTEEN";
const std::string group = "load-of-the-last-fifteen-minutes";
const std::string source = "host1.of.a.domain.of.thirty.two.";

constexpr ZORA_Long actionId = 4711;

std::string registration() {
  return registerMessage("appl:" + application + ",HMN;group:" + group + ";attr:load1,D,16;",
                         application, "HMN");
}

// The last answer. It takes no memory: that is the server's to do without.
class LastAnswer : public dch::Answers {
 public:
  void send(const dch::Origin&, std::string_view message) noexcept override {
    _length = message.copy(_bytes.data(), _bytes.size());
  }
  void forget() { _length = 0; }
  std::string bytes() const { return {_bytes.data(), _length}; }

 private:
  std::array<char, 8192> _bytes;
  std::size_t _length = 0;
};

// Sends, which can fail, and counts the events that are to be sent.
class CountingRowsOut : public dch::RowsOut {
 public:
  bool push(std::string_view message, const dch::PeerAddress& receiver) override {
    short code = 0;
    if (!dch::FieldReader(message).readShort(DCH_requestType, &code)) ++events;
    const sockaddr_in address = receiver.socketAddress();
    return sendto(_socket.descriptor(), message.data(), message.size(), 0,
                  reinterpret_cast<const sockaddr*>(&address), sizeof address) >= 0;
  }
  void takeGone(std::vector<dch::PeerAddress>*) override {}

  int events = 0;

 private:
  const DatagramSocket _socket;
};

// A program that only seems to run. It takes memory, as a real one does.
class SeemingProgram : public dch::Programs {
 public:
  std::string start(ZORA_Long id, const dch::ActionCommand&) override {
    _running = std::make_unique<ZORA_Long>(id);
    return {};
  }
  // The ID of its action, null when none runs.
  std::unique_ptr<ZORA_Long> end() { return std::exchange(_running, nullptr); }

 private:
  std::unique_ptr<ZORA_Long> _running;
};

// The server without its sockets for requests, and one client, which is subscribed to status.
class World {
 public:
  World() { handle(statusSubscribeMessage()); }

  // What the client sees of a request: its answer, and how many events it brings.
  struct Outcome {
    ZORA_Long status = 0;
    std::string text;
    int events = 0;
  };

  Outcome handle(const std::string& bytes) {
    begin();
    receive(bytes);
    return outcome();
  }

  // The same under test.
  Outcome handleTested(const std::string& bytes) {
    begin();
    tested([&] {
      receive(bytes);
      return 0;
    });
    return outcome();
  }

  ZORA_Long goOnline() {
    handle(registration());
    handle(onlineMessage(application, group, source));
    return onlineAnswerOf(_answer.bytes()).value().handle;
  }

  bool isRegistered() const { return _core.registry().findApplication(application) != nullptr; }
  bool isOnline() const {
    const dch::Source* const known = _core.registry().find({application, group, source});
    return known != nullptr && known->isOnline;
  }
  std::size_t deferralCount() const { return _core.deferrals().kept().size(); }
  bool isSubscribed() const { return _core.subscriptionCount() == 2; }

  // Forgets what the client was sent.
  void forgetSent() const {
    while (_client.hasDatagram()) _client.receive();
  }
  bool wasSentSomething() const { return _client.hasDatagram(); }

  // Asks for the result of the action, whose program ends then, when one was started.
  ZORA_Long resultOfAction() {
    begin();
    receive(actionResultsMessage(actionId));
    if (const auto id = _program.end()) _core.programEnded(*id, 0, 2);
    return statusOf(_answer.bytes()).value();
  }

 private:
  class NoTimer : public dch::Timer {
    void start() override {}
  };

  void begin() {
    _answer.forget();
    _rowsOut.events = 0;
  }

  void receive(const std::string& bytes) {
    _core.receive({bytes, {dch::PeerAddress(_client.address())}, 1});
  }

  Outcome outcome() const {
    const std::string answer = _answer.bytes();
    Outcome seen{0, textOf(answer).value_or(""), _rowsOut.events};
    if (const auto online = onlineAnswerOf(answer)) seen.status = online->status;
    if (const auto status = statusOf(answer)) seen.status = *status;
    return seen;
  }

  const DatagramSocket _client;
  const dch::testkit::ErrorLog _log{false};
  dch::Counters _counters;
  LastAnswer _answer;
  CountingRowsOut _rowsOut;
  dch::MemoryStore _store;
  NoTimer _timer;
  SeemingProgram _program;
  const dch::ActionRules _actionRules{.list = {{"succeed", {"/bin/true"}}}};
  dch::Core _core{{_answer, _rowsOut, _store, _timer, _program}, _actionRules, _counters, _log};
};

using Outcome = World::Outcome;

// What a client and its followers see of one request: "0 with 1 event, EFFECT".
std::string seen(const Outcome& outcome, const std::string& effect) {
  return std::to_string(outcome.status) + " with " + std::to_string(outcome.events) + " event, " +
         effect;
}

using Effect = std::function<std::string(World& world, const Outcome& outcome)>;

// Makes the request under test. When it did not go well it is made once more: nothing may be lost
// then that would be there had it gone well at once.
std::string request(World& world, const std::string& bytes, const std::string& whenWell,
                    const Effect& effect) {
  world.forgetSent();
  const Outcome first = world.handleTested(bytes);
  std::string text = seen(first, effect(world, first));
  if (text == whenWell) return text;
  world.forgetSent();
  const Outcome second = world.handle(bytes);
  return text + ", then " + seen(second, effect(world, second));
}

constexpr char registered[] = "0 with 1 event, registered";
std::string registerIt() {
  World world;
  return request(world, registration(), registered, [](World& after, const Outcome&) {
    return after.isRegistered() ? "registered" : "not registered";
  });
}

constexpr char online[] = "0 with 1 event, on line";
std::string goOnline() {
  World world;
  world.handle(registration());
  return request(
      world, onlineMessage(application, group, source), online,
      [](World& after, const Outcome&) { return after.isOnline() ? "on line" : "off line"; });
}

constexpr char offline[] = "0 with 1 event, off line";
std::string goOffline() {
  World world;
  const ZORA_Long handle = world.goOnline();
  return request(world, offlineMessage(handle), offline, [](World& after, const Outcome&) {
    return after.isOnline() ? "on line" : "off line";
  });
}

constexpr char unregistered[] = "0 with 2 event, not registered";
std::string unregister() {
  World world;
  world.goOnline();
  return request(world, unregisterMessage(application), unregistered,
                 [](World& after, const Outcome&) {
                   return after.isRegistered() ? "registered" : "not registered";
                 });
}

constexpr char pushed[] = "0 with 0 event, pushed";
std::string sendRow() {
  World world;
  const ZORA_Long handle = world.goOnline();
  world.handle(subscribeMessage(application, group));
  return request(world, dataMessage(handle, {{"load1", 'D', "0.25"}}), pushed,
                 [](World& after, const Outcome&) {
                   return after.wasSentSomething() ? "pushed" : "not pushed";
                 });
}

constexpr char subscribed[] = "0 with 0 event, subscribed";
std::string subscribe() {
  World world;
  return request(world, subscribeMessage(application, group), subscribed,
                 [](World& after, const Outcome&) {
                   return after.isSubscribed() ? "subscribed" : "not subscribed";
                 });
}

constexpr char told[] = "0 with 1 event, told";
std::string followStatus() {
  World world;
  world.goOnline();
  return request(world, statusSubscribeMessage(), told, [](World& after, const Outcome&) {
    return after.wasSentSomething() ? "told" : "not told";
  });
}

std::string ask(short code, const std::string& whenWell) {
  World world;
  world.goOnline();
  return request(
      world, catalogueMessage(code, application.c_str()), whenWell,
      [](World&, const Outcome& outcome) { return outcome.text.empty() ? "no text" : "text"; });
}

constexpr char answered[] = "0 with 0 event, text";
std::string askForApplications() {
  return ask(DCH_REQUEST_APPLICATIONS, answered);
}
std::string askForAttributes() {
  return ask(DCH_REQUEST_ATTRIBUTES, answered);
}

constexpr char deferred[] = "0 with 0 event, kept";
std::string defer() {
  World world;
  return request(world, deferralMessage(actionId, "A_TABLE_WITH_A_LONG_NAME"), deferred,
                 [](World& after, const Outcome&) {
                   return after.deferralCount() == 1 ? "kept" : "not kept";
                 });
}

constexpr char actionDone[] = "0 with 0 event, result 0";
std::string startAction() {
  World world;
  return request(world, actionMessage("succeed", actionId), actionDone,
                 [](World& after, const Outcome&) {
                   return "result " + std::to_string(after.resultOfAction());
                 });
}

// One that fails at first, in one of these ways, and goes well when it is made again.
Scenario scenarioOf(const char* name, std::string (*run)(), const char* whenWell,
                    std::vector<const char*> outcomesOfFault) {
  Scenario scenario{name, run, whenWell};
  for (const char* outcome : outcomesOfFault)
    scenario.failures.push_back({std::string(outcome) + ", then " + whenWell, {}, Silent::always});
  return scenario;
}

}  // namespace

std::vector<Scenario> collectionServerScenarios() {
  return {
      scenarioOf("registration", registerIt, registered, {"105 with 0 event, not registered"}),
      scenarioOf("going_on_line", goOnline, online, {"105 with 0 event, off line"}),
      scenarioOf("going_off_line", goOffline, offline, {"105 with 0 event, on line"}),
      scenarioOf("unregistration", unregister, unregistered, {"105 with 0 event, registered"}),
      // A row that the system does not take is lost for the subscriber, as one is on the way.
      scenarioOf("row", sendRow, pushed,
                 {"105 with 0 event, not pushed", "0 with 0 event, not pushed"}),
      // These have no answer to tell it.
      scenarioOf("subscription", subscribe, subscribed, {"0 with 0 event, not subscribed"}),
      scenarioOf("status_subscription", followStatus, told,
                 {"0 with 1 event, not told", "0 with 0 event, not told"}),
      scenarioOf("question_for_applications", askForApplications, answered,
                 {"105 with 0 event, no text", "0 with 0 event, no text"}),
      scenarioOf("question_for_attributes", askForAttributes, answered,
                 {"105 with 0 event, no text", "0 with 0 event, no text"}),
      scenarioOf("deferral", defer, deferred, {"0 with 0 event, not kept"}),
      // 105: its program could not be started; 106: the request was not done.
      scenarioOf("action", startAction, actionDone,
                 {"0 with 0 event, result 105", "0 with 0 event, result 106"}),
  };
}
