#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>

#include "tests/faults/scenario.h"
#include "tests/support/failing_calls.h"
#include "tests/support/messages.h"
#include "zordchcl/zordchcl.h"
#include "zordsock/zordsock.h"

namespace {

constexpr ZORA_Long handle = 815;

std::string dpRegister() {
  ZORA_Long status = untouched;
  const int result =
      tested([&] { return dp_register(&status, "appl:HOSTMON,HMN;group:load;attr:load1,D,16;"); });
  return outcomeOf(result, status);
}

std::string dpOnline() {
  ZORA_Long status = untouched;
  ZORA_Long given = untouched;
  const int result = tested([&] { return dp_online(&status, &given, "HOSTMON", "load", "host1"); });
  return outcomeOf(result, status) + (given == handle ? " and the handle" : "");
}

std::string dpOffline() {
  ZORA_Long status = untouched;
  const int result = tested([&] { return dp_offline(&status, handle); });
  return outcomeOf(result, status);
}

std::string dpUnregister() {
  ZORA_Long status = untouched;
  const int result = tested([&] { return dp_unregister(&status, "HOSTMON"); });
  return outcomeOf(result, status);
}

std::string dpCancel() {
  ZORA_Long status = untouched;
  const int result = tested([&] { return dp_cancel(&status, handle); });
  return outcomeOf(result, status);
}

std::string dpFormatData() {
  ZORA_Long status = untouched;
  ZORA_Long size = 0;
  char* row = nullptr;
  const int result =
      tested([&] { return dp_formatData(&status, &row, &size, "load1", "0.25", 4, 'D'); });
  const bool hasRow = row != nullptr && size > 0;
  delete[] row;
  return outcomeOf(result, status) + (hasRow ? " and a row" : "");
}

// A row as dp_formatData leaves it, in a block that the library frees.
char* newRow() {
  const std::string message = messageOf([](DCH_MessageBuilder& builder) {
    builder.add(DCH_requestType, short{DCH_REQUEST_DATA})
        .add(DCH_handle, DCH_DATA_HANDLE_PLACEHOLDER)
        .add(DCH_dataCode, DCH_DATA_CODE_PLACEHOLDER)
        .add(DCH_attrName, "load1")
        .addAttributeValue("0.25", 4, 'D');
  });
  char* const row = new char[DCH_WORK_BUFFER_SIZE]();
  std::copy(message.begin(), message.end(), row);
  return row;
}

// Sends a row by `send`, and tells whether it is still the caller's.
template <class Send>
std::string sendRow(Send send) {
  ZORA_Long status = untouched;
  char* row = newRow();
  const int result = tested([&] { return send(&status, &row); });
  const bool isKept = row != nullptr;
  delete[] row;
  return outcomeOf(result, status) + (isKept ? " with the row kept" : "");
}

std::string dpData() {
  return sendRow([](ZORA_Long* status, char** row) { return dp_data(status, handle, 17, row); });
}

std::string dpActionData() {
  return sendRow(
      [](ZORA_Long* status, char** row) { return dp_actionData(status, handle, 17, row, 1, 1); });
}

// All sockets of the pool are in use when the call begins. One becomes free once it waits.
std::string dpCancelThatWaits() {
  ipcSock owner(SERVICE_UDP_CLIENT, 0, 1);
  std::atomic<bool> isOver{false};
  std::thread releasing([&] {
    while (callsMade(SystemCall::timedWaitCondition) == 0 && !isOver) std::this_thread::yield();
    owner.releaseIPC();
  });
  std::string outcome = dpCancel();
  isOver = true;
  releasing.join();
  return outcome;
}

template <class Call>
std::string doneBy(Call call) {
  tested(call);
  return "done";
}

}  // namespace

std::vector<Scenario> providerScenarios() {
  // Without memory for the client the caller's status variable stays as it was; without memory for
  // its transport the client answers that it failed.
  const Failure noClient{"1 status untouched", {}, Silent::withoutMemory};
  const Failure noTransport{"1 status 0", {"Error: ipcSock creation failed.\n"}};
  const Failure noAnswer{"1 status 5", {"Error: ipcRead with wait[1 second] failed\n"}};
  const auto notSent = [](const std::string& function) {
    return Failure{"1 status 2", {"Error: writing " + function + " message to DCHserver\n"}};
  };
  const std::vector<Failure> answerAwaitedAnyhow = {noClient, noTransport, noAnswer};
  const std::vector<Failure> rowExchange = {
      {"1 status untouched with the row kept", {}, Silent::withoutMemory},
      {"1 status 0 with the row kept", noTransport.lines},
      notSent("dp_data"),
      noAnswer};
  std::vector<Scenario> scenarios = {
      {"dp_register", dpRegister, "0 status 0", answerAwaitedAnyhow},
      {"dp_online", dpOnline, "0 status 0 and the handle", answerAwaitedAnyhow},
      {"dp_formatData",
       dpFormatData,
       "0 status 0 and a row",
       {noClient, noTransport, {"1 status 4", {"Error: allocation for workBuffer failed.\n"}}}},
      {"dp_data", dpData, "0 status 0", rowExchange},
      {"dp_actionData", dpActionData, "0 status 0", rowExchange},
      {"dp_offline",
       dpOffline,
       "0 status 0",
       {noClient, noTransport, notSent("dp_offline"), noAnswer}},
      {"dp_unregister",
       dpUnregister,
       "0 status 0",
       {noClient, noTransport, notSent("dp_unregister"), noAnswer}},
      {"dp_cancel", dpCancel, "0 status 0", {noClient, noTransport}},
      {"dp_cancel_that_waits_for_a_socket",
       dpCancelThatWaits,
       "0 status 0",
       {noClient, noTransport}},
      {"dp_waitForAction", [] { return doneBy([] { dp_waitForAction(1); }); }, "done"},
      {"dp_provideActionResults", [] { return doneBy([] { dp_provideActionResults(1, 2); }); },
       "done"},
      {"DCH_shutdown", [] { return doneBy([] { DCH_shutdown(0); }); }, "done"},
  };
  for (Scenario& scenario : scenarios) {
    scenario.lastWords = noTransportAtAll;
    if (scenario.run == dpCancelThatWaits)
      scenario.setEnvironment = [] { setenv("ZORA_DCH_UDP_SOCKETS_IN_POOL", "1", 1); };
  }
  return scenarios;
}
