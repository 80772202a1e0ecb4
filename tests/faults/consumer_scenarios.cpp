#include <fcntl.h>
#include <poll.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/faults/scenario.h"
#include "zordchcl/DCHclient.h"
#include "zordchcl/zordchcl.h"
#include "zordsock/zordsock.h"

namespace {

// ---- Rows ------------------------------------------------------------------------------------

void* subscribe(const char* application) {
  DCH_api_init();
  void* const handle = dc_waitOnDataInitialize(application, "load");
  if (handle == nullptr) std::abort();
  return handle;
}

std::string waitOnDataInitialize() {
  DCH_api_init();
  // A row would come when its port is perhaps another test's.
  void* const handle = tested([&] { return dc_waitOnDataInitialize("SILENT", "load"); });
  if (handle == nullptr) return "no handle";
  dc_waitOnDataDestroy(handle);
  return "a handle";
}

std::string waitOn(void* handle) {
  char row[256] = "";
  const int result = tested([&] { return dc_waitOnData(handle, row, sizeof row); });
  dc_waitOnDataDestroy(handle);
  const bool hasRow = std::memcmp(row, "\0\0\0", 3) == 0 && row[3] != '\0';
  return std::to_string(result) + (hasRow ? " and a message" : "");
}

std::string waitOnData() {
  return waitOn(subscribe("HOSTMON"));
}

std::string waitOnDataThatIsCancelled() {
  void* const handle = subscribe("SILENT");
  if (dc_waitOnDataCancel(handle) != 0) std::abort();
  return waitOn(handle);
}

std::string waitOnDataCancel() {
  void* const handle = subscribe("SILENT");
  const int result = tested([&] { return dc_waitOnDataCancel(handle); });
  dc_waitOnDataDestroy(handle);
  return std::to_string(result);
}

std::string waitOnDataDestroy() {
  void* const handle = subscribe("SILENT");
  const int descriptor = static_cast<DCHclient*>(handle)->_interruptFD;
  const int result = tested([&] { return dc_waitOnDataDestroy(handle); });
  // Without the lock the handle stays as it was.
  const bool isAlive = fcntl(descriptor, F_GETFD) != -1;
  if (isAlive) dc_waitOnDataDestroy(handle);
  return std::to_string(result) + (isAlive ? " with the handle kept" : "");
}

// ---- Provider status -------------------------------------------------------------------------

void* followStatus() {
  DCH_api_init();
  void* const handle = dc_waitForDPStatusInitialize();
  if (handle == nullptr) std::abort();
  return handle;
}

// Waits for the notification that each subscription is sent, as the port may soon be another
// test's; but not for long, for a fault may have led the subscription elsewhere.
void awaitNotification(void* handle) {
  constexpr int longestWaitMilliseconds = 300;
  auto* const transport = static_cast<ipcSock*>(static_cast<DCHclient*>(handle)->_ipcClient);
  pollfd watched{transport->sockUDP(), POLLIN, 0};
  poll(&watched, 1, longestWaitMilliseconds);
}

std::string waitForStatusInitialize() {
  DCH_api_init();
  void* const handle = tested([&] { return dc_waitForDPStatusInitialize(); });
  if (handle == nullptr) return "no handle";
  awaitNotification(handle);
  dc_waitForDPStatusDestroy(handle);
  return "a handle";
}

std::string waitForStatus() {
  void* const handle = followStatus();
  const char* const text = tested([&] { return dc_waitForDPStatus(handle); });
  const std::string outcome = text != nullptr ? text : "no text";
  dc_waitForDPStatusDestroy(handle);
  return outcome;
}

std::string waitForStatusDestroy() {
  void* const handle = followStatus();
  awaitNotification(handle);
  return std::to_string(tested([&] { return dc_waitForDPStatusDestroy(handle); }));
}

// ---- Catalogue -------------------------------------------------------------------------------

template <auto query>
std::string ask() {
  ZORA_Long length = untouched;
  char* buffer = nullptr;
  const int result = tested([&] { return query(&length, &buffer, "HOSTMON", 1); });
  std::string outcome = std::to_string(result) + " length " + std::to_string(length);
  outcome += buffer != nullptr ? std::string(" ") + buffer : " without a block";
  std::free(buffer);
  return outcome;
}

// ---- Actions ---------------------------------------------------------------------------------

std::string provideAction() {
  return std::to_string(tested([&] {
    return dc_provideAction(1, "owner", "node", "subnode", "restart", 4711, "service=web");
  }));
}

std::string waitForActionResults() {
  return std::to_string(tested([&] { return dc_waitForActionResults(4711); }));
}

std::string deferReportRequest() {
  return std::to_string(
      tested([&] { return dc_deferReportRequest(nullptr, 4711, 1000, "HMN", "TABLE", "host1"); }));
}

}  // namespace

std::vector<Scenario> consumerScenarios() {
  const std::string noTransport = "Error: ipcSock creation failed.\n";
  const std::string noClient = "Error: allocating DCHclient.\n";
  const std::string noAnswer = "Error: ipcRead with wait[1 second] failed\n";
  const std::string notLocked = "Error: pthread_mutex_lock failed, rc=";
  const std::string notUnlocked = "Error: pthread_mutex_unlock failed, rc=";
  const auto notSent = [](const std::string& function) {
    return "Error: writing " + function + " message to DCHserver";
  };
  const auto catalogue = [&](const std::string& function, std::string (*run)()) {
    return Scenario{
        function,
        run,
        "0 length 6 answer",
        {{"1 length 0 without a block", {noClient, "Error: " + function + " failed.\n"}},
         {"0 length 6 without a block", {"Error: allocating 7 bytes for buffer\n"}}}};
  };
  std::vector<Scenario> scenarios = {
      {"dc_waitOnDataInitialize",
       waitOnDataInitialize,
       "a handle",
       {{"no handle",
         {"Error: unable to acquire dc_waitOnDataLock\n", noTransport,
          "Error: _interruptFD[-1]  errno=", notSent("dc_waitOnDataInitialize"), notUnlocked},
         Silent::withoutMemory}}},
      {"dc_waitOnData",
       waitOnData,
       "0 and a message",
       {{"1",
         {"Error: select (indefinitely) failed.\n",
          "Error: while waiting 1 second(s) for dc_waitOnData response.\n"}}}},
      {"dc_waitOnData_that_is_cancelled",
       waitOnDataThatIsCancelled,
       "-1 and a message",
       {{"1", {"Error: select (indefinitely) failed.\n"}}, {"-1", {}, Silent::always}}},
      {"dc_waitOnDataCancel",
       waitOnDataCancel,
       "0",
       {{"1", {"Error: SENDTO - Sent -1 bytes out of ", notLocked, notUnlocked}}}},
      {"dc_waitOnDataDestroy",
       waitOnDataDestroy,
       "0",
       {{"1", {notSent("dc_waitOnDataDestroy"), notUnlocked}},
        {"1 with the handle kept", {notLocked}}}},
      {"dc_waitForDPStatusInitialize",
       waitForStatusInitialize,
       "a handle",
       {{"no handle",
         {notLocked, noTransport, notSent("dc_waitForDPStatus"), notUnlocked},
         Silent::withoutMemory}}},
      {"dc_waitForDPStatus",
       waitForStatus,
       "HOSTMON,load,host1,4117",
       {{"no text", {"Error: ipcRead with wait[FOREVER] failed\n"}}}},
      {"dc_waitForDPStatusDestroy",
       waitForStatusDestroy,
       "0",
       {{"1", {notSent("dc_waitForDPStatus")}}}},
      catalogue("dc_getApplications", ask<dc_getApplications>),
      catalogue("dc_getApplAttributes", ask<dc_getApplAttributes>),
      catalogue("dc_getApplHelp", ask<dc_getApplHelp>),
      {"dc_provideAction",
       provideAction,
       "0",
       {{"1", {noClient, "Error: dc_provideAction failed.\n"}}}},
      {"dc_waitForActionResults",
       waitForActionResults,
       "7",
       {{"-1", {noTransport, notSent("dc_waitForActionResults"), noAnswer}}, {"1", {noClient}}}},
      {"dc_deferReportRequest",
       deferReportRequest,
       "0",
       {{"1", {noTransport, notSent("dc_deferReportRequest")}}}},
  };
  for (Scenario& scenario : scenarios) {
    scenario.lastWords = noTransportAtAll;
    if (scenario.success != "a handle") continue;
    // A subscription that failed stays alive: the client, its transport and their sockets.
    scenario.descriptorsLeft = 2;
    scenario.allocationsLeft = 2;
  }
  return scenarios;
}
