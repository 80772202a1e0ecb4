#include "tests/load/subscribers.h"

#include <linux/sock_diag.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

#include "tests/load/providers.h"
#include "zordchcl/DCHclient.h"
#include "zordsock/zordsock.h"

namespace load {
namespace {

// The socket of a handle, which the exported functions keep to themselves.
int socketOf(void* handle) {
  return static_cast<ipcSock*>(static_cast<DCHclient*>(handle)->_ipcClient)->sockUDP();
}

// An answer shows that the DCH has read all that was sent before.
void waitForTheDch() {
  DCHclient client(0, 0);
  char* text = nullptr;
  client.dc_getApplHelp(&text, "", 20);
  if (text == nullptr) throw std::runtime_error("the DCH does not answer a question");
  std::free(text);
}

void* subscribe(int subscriber) {
  constexpr int batch = 50;  // far less than the DCH's socket holds
  void* const handle =
      dc_waitOnDataInitialize(applicationName(subscriber % applicationCount).c_str(), groupName);
  if (handle == nullptr) throw std::runtime_error("dc_waitOnDataInitialize failed");
  if (subscriber % batch == batch - 1) waitForTheDch();
  return handle;
}

void setReceiveBuffer(int descriptor, int bytes) {
  setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
}

// The datagrams that the system dropped because the socket was full.
std::uint32_t droppedBy(int descriptor) {
  std::uint32_t info[SK_MEMINFO_VARS] = {};
  socklen_t length = sizeof info;
  if (getsockopt(descriptor, SOL_SOCKET, SO_MEMINFO, info, &length) != 0)
    throw std::runtime_error("the system does not tell what a socket dropped");
  return info[SK_MEMINFO_DROPS];
}

struct Row {
  std::uint32_t source = 0;
  std::uint32_t number = 0;
};

bool takeNumber(ZOR0_FieldCursor* fields, std::uint32_t* number) {
  void* value = nullptr;
  ZORA_Long length = 0;
  char letter = 0;
  if (ZOR0_ExtractDataField(fields, &value, &length, &letter) != DCH_attrName ||
      ZOR0_ExtractDataField(fields, &value, &length, &letter) != DCH_attrValue ||
      length != sizeof *number)
    return false;
  std::memcpy(number, value, sizeof *number);
  return true;
}

bool readRow(char* message, Row* row) {
  ZOR0_FieldCursor fields(message, ZOR0_MessageLength(message));
  void* value = nullptr;
  ZORA_Long length = 0;
  char letter = 0;
  for (const short type : {DCH_requestType, DCH_handle, DCH_dataCode})
    if (ZOR0_ExtractDataField(&fields, &value, &length, &letter) != type) return false;
  return takeNumber(&fields, &row->source) && takeNumber(&fields, &row->number);
}

}  // namespace

Readers::Readers(int count) : _epoll(epoll_create1(EPOLL_CLOEXEC)) {
  constexpr int receiveBufferBytes = 1 << 20;
  _readers.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    _readers.push_back({subscribe(i), i % applicationCount, {}});
    epoll_event event{EPOLLIN, {.ptr = &_readers.back()}};
    const int descriptor = socketOf(_readers.back().handle);
    setReceiveBuffer(descriptor, receiveBufferBytes);
    if (epoll_ctl(_epoll, EPOLL_CTL_ADD, descriptor, &event) != 0)
      throw std::runtime_error("epoll_ctl failed");
  }
  waitForTheDch();
  _thread = std::thread(&Readers::run, this);
}

Readers::~Readers() {
  stop();
  for (const Reader& reader : _readers) dc_waitOnDataDestroy(reader.handle);
  close(_epoll);
}

void Readers::run() {
  constexpr int wakeMilliseconds = 100;
  epoll_event events[64];
  while (!_stopping) {
    const int count = epoll_wait(_epoll, events, std::size(events), wakeMilliseconds);
    for (int i = 0; i < count; ++i) take(static_cast<Reader*>(events[i].data.ptr));
  }
}

void Readers::take(Reader* reader) {
  char message[UDP_CHUNK_SIZE];
  Row row;
  if (dc_waitOnData(reader->handle, message, sizeof message) != 0 || !readRow(message, &row)) {
    _failed = true;
    return;
  }
  if (row.source >= reader->lastNumber.size()) reader->lastNumber.resize(row.source + 1);
  std::uint32_t& last = reader->lastNumber[row.source];
  if (row.number <= last) {
    ++reader->doubled;
    return;
  }
  if (last != 0) reader->missing += row.number - last - 1;
  last = row.number;
  ++reader->received;
  ++_received;
}

Delivery Readers::finish(const std::vector<std::uint32_t>& acknowledged) {
  std::uint64_t rowsOf[applicationCount] = {};
  for (std::size_t source = 0; source < acknowledged.size(); ++source)
    rowsOf[Providers::applicationOf(static_cast<int>(source))] += acknowledged[source];
  Delivery delivery;
  for (const Reader& reader : _readers) delivery.expected += rowsOf[reader.application];
  waitUntilQuiet(delivery.expected, std::chrono::seconds(20));
  stop();
  if (_failed) throw std::runtime_error("a wait for a row failed, or the row was not as sent");
  for (const Reader& reader : _readers) {
    const std::uint64_t expected = rowsOf[reader.application];
    const std::uint64_t missing = expected > reader.received ? expected - reader.received : 0;
    const std::uint64_t dropped = droppedBy(socketOf(reader.handle));
    delivery.received += reader.received;
    delivery.doubled += reader.doubled;
    delivery.droppedUnread += std::min(missing, dropped);
    delivery.lost += missing - std::min(missing, dropped);
  }
  return delivery;
}

Delivery Readers::finish() {
  waitUntilQuiet(UINT64_MAX, std::chrono::milliseconds(300));
  stop();
  if (_failed) throw std::runtime_error("a wait for a row failed, or the row was not as sent");
  Delivery delivery;
  for (const Reader& reader : _readers) {
    const std::uint64_t dropped = droppedBy(socketOf(reader.handle));
    delivery.expected += reader.received + reader.missing;
    delivery.received += reader.received;
    delivery.doubled += reader.doubled;
    delivery.droppedUnread += std::min(reader.missing, dropped);
    delivery.lost += reader.missing - std::min(reader.missing, dropped);
  }
  return delivery;
}

// Until so many came or were dropped, or none for so long.
void Readers::waitUntilQuiet(std::uint64_t expected,
                             std::chrono::milliseconds longestSilence) const {
  std::uint64_t before = 0;
  auto since = std::chrono::steady_clock::now();
  while (_received + dropped() < expected &&
         std::chrono::steady_clock::now() - since < longestSilence) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    if (_received == before) continue;
    before = _received;
    since = std::chrono::steady_clock::now();
  }
}

std::uint64_t Readers::dropped() const {
  std::uint64_t count = 0;
  for (const Reader& reader : _readers) count += droppedBy(socketOf(reader.handle));
  return count;
}

void Readers::stop() {
  _stopping = true;
  if (_thread.joinable()) _thread.join();
}

DeafSubscribers::DeafSubscribers(int count)
    : _process("/proc/self/exe", {"--deaf", std::to_string(count)}) {
  _process.waitForOutput(".");
}

int DeafSubscribers::beDeaf(int count) {
  for (int i = 0; i < count; ++i) setReceiveBuffer(socketOf(subscribe(i)), 1);
  waitForTheDch();
  if (write(STDOUT_FILENO, ".", 1) != 1) return EXIT_FAILURE;
  for (;;) pause();
}

}  // namespace load
