#include "tests/support/running_server.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

#include "suite/sockets.h"
#include "tests/support/sockets.h"

namespace {

// An endpoint of this type starts nothing; the test plays the part of startup().
constexpr short noService = 0;

// Port 0 is any free one, and no setting of this machine is to choose another.
short withFreePorts(short typeOfService) {
  setenv("ZORA_DCH_PORT", "0", 1);
  setenv("ZOR0_PRODUCT_SPEC", "/dev/null", 1);
  return typeOfService;
}

bool waitForEntry(ipcCircularBuffer& queue) {
  timespec deadline;
  clock_gettime(CLOCK_REALTIME, &deadline);
  deadline.tv_sec += 20;
  int code = 0;
  pthread_mutex_lock(&queue.lock);
  while (queue.num_full == 0 && code == 0)
    code = pthread_cond_timedwait(&queue.notEmpty, &queue.lock, &deadline);
  pthread_mutex_unlock(&queue.lock);
  return code == 0;
}

}  // namespace

const std::string blankName(255, ' ');

QueuedMessage takeMessage(DCHipc& server) {
  QueuedMessage message;
  ipcCircularBuffer& queue = *server._ipcCircularBuffer;
  if (!waitForEntry(queue)) {
    ADD_FAILURE() << "nothing came into the queue";
    return message;
  }
  char* buffer = nullptr;
  ZORA_Long size = 0;
  char address[IPC_ADDRESS_SIZE];
  char name[IPC_NAME_SIZE];
  server.ipc_get_data(&buffer, &size, address, &message.senderLength, name, &message.descriptor);
  const std::unique_ptr<char[]> owner(buffer);
  // The slot just emptied is filled again only after the next entry is taken.
  const ZORA_Long taken = (queue.start_idx + IPC_QSIZE - 1) % IPC_QSIZE;
  message.bytes.assign(buffer, static_cast<std::size_t>(queue.dataLen[taken]));
  std::memcpy(&message.sender, address, sizeof message.sender);
  message.name = name;
  return message;
}

RunningServer::RunningServer() : _endpoint(withFreePorts(noService), 0, 0) {
  _endpoint._typeOfService = SERVICE_SERVER;  // so that its queue goes with it
  _endpoint._sockError = 0;
  _endpoint.ipcSetError(0);
  _endpoint.ipc_new_cb();
}

RunningServer::~RunningServer() {
  stop();
  for (const ZORA_Long connection : _endpoint._sockClientFD)
    if (connection > 0) ZOR0_CloseTheSocket(connection);
}

QueuedMessage RunningServer::start() {
  launch([this] { return _endpoint.IPCServer(); });
  return next();
}

void RunningServer::launch(const std::function<ZORA_Long()>& loop) {
  _result = std::async(std::launch::async, loop);
}

bool RunningServer::hasEnded() const {
  return _result.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

void RunningServer::stop() {
  if (!_result.valid()) return;
  const DatagramSocket waker;
  const auto ends = [&] {
    // Said again and again: an error that the loop is about to note writes over it.
    _endpoint._sockError = 2;
    waker.sendTo(datagramPort(), "wake up");
    return _result.wait_for(std::chrono::milliseconds(20)) == std::future_status::ready;
  };
  // A loop that waits for room in the queue comes to its end only when there is some.
  while (!ends())
    if (_endpoint._ipcCircularBuffer->num_full != 0) next();
  _result.get();
}
