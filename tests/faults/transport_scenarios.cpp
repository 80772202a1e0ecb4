// What a server's process does of the channel's other half, one call at a time.
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <memory>
#include <semaphore>
#include <string>
#include <thread>

#include "suite/product_settings.h"
#include "tests/faults/scenario.h"
#include "tests/support/running_server.h"
#include "tests/support/temporary_files.h"
#include "zordsock/settings.h"

namespace {

// ---- Start-up --------------------------------------------------------------------------------

std::counting_semaphore<> threadsEnded{0};

// A server whose receiver thread has nothing to do.
class IdleServer final : public DCHipc {
 public:
  IdleServer() : DCHipc(SERVICE_SERVER) { _ipcCircularBuffer = nullptr; }

  ZORA_Long IPCServer() override {
    threadsEnded.release();
    return 0;
  }
  ZORA_Long ipcRead(void**, ZORA_Long) override { return 0; }
  ZORA_Long ipcWrite(void*, ZORA_Long, unsigned int) override { return 0; }
  void setClientAddr(void*, ZORA_Long) override {}
  ZORA_Long IPCClient(void*, ZORA_Long, ZORA_Long) override { return 0; }
  ZORA_Long allocateIPC() override { return 0; }
  ZORA_Long releaseIPC() override { return 0; }
};

std::string startup() {
  IdleServer server;
  const int result = tested([&] { return server.startup(nullptr, 0); });
  // The thread is started without a queue too.
  if (result == 0 || server._ipcCircularBuffer == nullptr) threadsEnded.acquire();
  return std::to_string(result);
}

// ---- Queue -----------------------------------------------------------------------------------

void put(ipcSock& endpoint, const std::string& text) {
  endpoint.ipc_put_data(static_cast<ZORA_Long>(text.size()), text.data(), &endpoint._sockAddress,
                        sizeof endpoint._sockAddress, nullptr, 0);
}

// Does `then` on another thread once a call under test waits for a condition, while it lives.
class OnceItWaits {
 public:
  explicit OnceItWaits(const std::function<void()>& then)
      : _thread([this, then] {
          while (callsMade(SystemCall::waitCondition) == 0 && !_isOver) std::this_thread::yield();
          if (!_isOver) then();
        }) {}
  ~OnceItWaits() {
    _isOver = true;
    _thread.join();
  }
  OnceItWaits(const OnceItWaits&) = delete;
  OnceItWaits& operator=(const OnceItWaits&) = delete;

 private:
  std::atomic<bool> _isOver{false};
  std::thread _thread;
};

std::string putOnFullQueue() {
  RunningServer server;
  ipcSock& endpoint = server.endpoint();
  for (int i = 0; i < IPC_QSIZE - 1; ++i) put(endpoint, "before");
  {
    const OnceItWaits consumer([&] { server.next(); });
    const std::string text = "last";
    tested([&] { put(endpoint, text); });
  }
  std::string last;
  while (endpoint._ipcCircularBuffer->num_full > 0) last = server.next().bytes;
  return last == "last" ? "queued" : "dropped";
}

std::string getFromEmptyQueue() {
  RunningServer server;
  char* buffer = nullptr;
  ZORA_Long size = 0;
  char address[IPC_ADDRESS_SIZE];
  ZORA_Long addressLength = 0;
  char name[IPC_NAME_SIZE] = "";
  unsigned int connection = 0;
  {
    const OnceItWaits producer([&] { put(server.endpoint(), "message"); });
    tested([&] {
      server.endpoint().ipc_get_data(&buffer, &size, address, &addressLength, name, &connection);
    });
  }
  const std::unique_ptr<char[]> owner(buffer);
  return addressLength != 0 && buffer == std::string("message") ? "taken" : "nothing";
}

// ---- Answers ---------------------------------------------------------------------------------

std::string writeOnConnection() {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) std::abort();
  RunningServer server;
  // The endpoint waits for its own stream socket when a connection takes nothing.
  server.endpoint()._sockTCP = dup(ends[0]);
  char message[] = "an answer";
  const ZORA_Long sent = tested([&] {
    return server.endpoint().ipcWrite(message, sizeof message, static_cast<unsigned int>(ends[0]));
  });
  shutdown(ends[0], SHUT_WR);
  close(ends[0]);
  char received[2 * sizeof message];
  const ssize_t count = read(ends[1], received, sizeof received);
  close(ends[1]);
  if (sent == sizeof message) return count == sizeof message ? "sent" : "lost";
  return sent == -1 && count == 0 ? "not sent" : "half sent";
}

// ---- Settings --------------------------------------------------------------------------------

std::string updateSetting() {
  const SettingsFile settings("3=MONITOR\n22=1919\n");
  const int result = tested([] { return ZOR0_UpdateProductSpec(22, "2020"); });
  std::string content = settings.content();
  std::replace(content.begin(), content.end(), '\n', ' ');
  return std::to_string(result) + ' ' + content +
         (settings.folder().files().size() > 2 ? "and more" : "");
}

// Longer than what a string holds without memory of its own.
const std::string longText(80, 'Z');

std::string querySetting() {
  const SettingsFile settings("3=MONITOR\n22=" + longText + "\n");
  const char* const text = tested([] { return ZOR0_QueryProductSpec(22); });
  return text != nullptr ? text : "no text";
}

// ---- The port --------------------------------------------------------------------------------

// The first candidate is any free port, the others are these.
constexpr char candidates[] = "0=any\n23=21000\n";

std::string allocateCandidatePort() {
  RunningServer server;
  const SettingsFile settings(candidates);
  zordsock::_envPortNo = 0;
  ipcSock& endpoint = server.endpoint();
  tested([&] { return endpoint.allocateDCHport(); });
  if (endpoint._sockUDP < 0 || endpoint._sockTCP < 0) return "no sockets";
  return zordsock::_envPortNo == 0 ? "a port" : "a later port";
}

}  // namespace

std::vector<Scenario> transportScenarios() {
  const std::string noLock = "Error: unable to acquire ipcCircularBuffer lock\n";
  const std::string notWaited = "Error: pthread_cond_wait failed. rc=";
  std::vector<Scenario> scenarios = {
      {"ipc_put_data_with_a_full_queue",
       putOnFullQueue,
       "queued",
       {{"dropped", {noLock, notWaited, "Error: allocating 4096 bytes.\n"}}}},
      {"ipc_get_data_with_an_empty_queue",
       getFromEmptyQueue,
       "taken",
       {{"nothing", {noLock, notWaited, "Error: allocating 4096 bytes.\n"}}}},
      {"ipcWrite_with_a_connection",
       writeOnConnection,
       "sent",
       {{"not sent", {"] SEND - Sent -1 bytes out of "}}}},
      {"ZOR0_QueryProductSpec",
       querySetting,
       longText,
       {{"no text", {"Error: product setting 22 cannot be read: "}}}},
  };
  Scenario update{"ZOR0_UpdateProductSpec", updateSetting, "1 3=MONITOR 22=2020 "};
  update.failures = {
      {"0 3=MONITOR 22=1919 ",
       {"Error: writing product settings <", "Error: product setting 22 cannot be written: "}}};
  // Without the path, settings are kept in memory.
  update.withoutSetting = "1 3=MONITOR 22=1919 ";
  scenarios.push_back(update);
  Scenario port{"allocateDCHport_with_candidates", allocateCandidatePort, "a port"};
  port.failures = {
      {"a later port", {"Error: Could not open TCP/UDP sockets bound to ZORA DCH port 0,"}}};
  port.lastWords = "Exiting...";
  // The other socket of a candidate that could not be had stays open.
  port.descriptorsLeft = 3;
  scenarios.push_back(port);
  for (Scenario& scenario : scenarios)
    if (scenario.run == querySetting) scenario.withoutSetting = "no text";
  Scenario start{"startup", startup, "0"};
  start.failures = {{"1",
                     {"Error: IPCServerThread thread failed creation.\n",
                      "Error: failed to allocate a circular buffer.\n"}}};
  start.setEnvironment = [] { unsetenv("ZORA_TRACE"); };
  scenarios.push_back(start);
  return scenarios;
}
