#include "fuzz/support/client_run.h"

#include <arpa/inet.h>
#include <sanitizer/asan_interface.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fuzz/support/null_trace.h"
#include "fuzz/support/require.h"
#include "zordchcl/zordchcl.h"
#include "zordsock/zordsock.h"

namespace fuzz {

namespace {

constexpr std::size_t lengthWord = 4;
constexpr int pooledSockets = 1;  // opened with the first request
constexpr std::size_t largestRead = UDP_CHUNK_SIZE;

// Pieces of the sizes that the input asks for, empty ones among them, as far as its bytes go and
// with zeroes from there on; what is left of the bytes is the last one.
std::deque<std::string> takePieces(Input* input) {
  constexpr unsigned mostPieces = MAX_READ_CHUNKS + 2;
  constexpr std::size_t mostBytes = UDP_CHUNK_SIZE + 8;
  std::vector<std::size_t> sizes(input->takeByte() % mostPieces);
  for (std::size_t& size : sizes) size = input->takeNumber() % mostBytes;
  std::deque<std::string> pieces;
  for (const std::size_t size : sizes) {
    pieces.emplace_back(input->takeBytes(size));
    pieces.back().resize(size);
  }
  if (pieces.empty() || !input->atEnd()) pieces.emplace_back(input->takeRest());
  return pieces;
}

std::deque<std::string> takeDatagrams(Input* input, unsigned shape) {
  if ((shape & SHAPE_CUT) != 0) return takePieces(input);
  return {std::string(input->takeRest())};
}

std::size_t sizeOf(const std::deque<std::string>& datagrams) {
  std::size_t total = 0;
  for (const std::string& datagram : datagrams) total += std::min(datagram.size(), largestRead);
  return total;
}

void makeLengthRight(std::deque<std::string>* datagrams) {
  const std::uint32_t word = htonl(static_cast<std::uint32_t>(sizeOf(*datagrams)));
  std::string& first = datagrams->front();
  std::memcpy(first.data(), &word, std::min(first.size(), sizeof word));
}

void makeSizeRight(std::deque<std::string>* datagrams) {
  std::string first = datagrams->front().substr(0, lengthWord);
  first.resize(lengthWord);
  const std::size_t announced = numberIn(first, lengthWord);
  if (announced > MAX_READ_CHUNKS * largestRead) return;
  while (sizeOf(*datagrams) < announced)
    datagrams->emplace_back(std::min(announced - sizeOf(*datagrams), largestRead), '\0');
}

}  // namespace

ClientRun::ClientRun(Input* input) : Network(pooledSockets) {
  const unsigned shape = input->takeByte();
  _datagrams = takeDatagrams(input, shape);
  if ((shape & SHAPE_INTERRUPT) != 0) {
    _interrupt = _datagrams.front();
    _datagrams.pop_front();
  }
  if (_datagrams.empty()) return;
  if ((shape & SHAPE_RIGHT_SIZE) != 0) makeSizeRight(&_datagrams);
  if ((shape & SHAPE_RIGHT_LENGTH) != 0) makeLengthRight(&_datagrams);
}

std::optional<std::string> ClientRun::message() const {
  std::string message;
  std::size_t stated = 0;
  int count = 0;
  for (const std::string& datagram : _datagrams) {
    // An empty datagram ends a read, and so does one too many.
    if (datagram.empty() || count++ == MAX_READ_CHUNKS) return std::nullopt;
    if (message.empty()) {
      // A first datagram without a whole length word is no message, whatever comes after it.
      if (datagram.size() < lengthWord) return std::nullopt;
      stated = numberIn(datagram, lengthWord);
    }
    message += datagram.substr(0, largestRead);
    if (stated <= message.size()) break;
  }
  if (message.empty() || stated != message.size()) return std::nullopt;
  return message;
}

bool ClientRun::isReadable(int descriptor) {
  if (isLoopbackSocket(descriptor)) return _interrupt && !_interruptTaken;
  return _received < _datagrams.size();
}

ssize_t ClientRun::receive(int descriptor, char* bytes, std::size_t capacity, sockaddr_in*) {
  require(isReadable(descriptor), "a receive that would block");
  if (isLoopbackSocket(descriptor)) {
    _interruptTaken = true;
    return static_cast<ssize_t>(_interrupt->copy(bytes, capacity));
  }
  const std::string& datagram = _datagrams[_received++];
  const std::size_t count = datagram.copy(bytes, capacity);
  // Nothing behind the datagram is to be looked at.
  if (count > 0 && count < capacity) ASAN_POISON_MEMORY_REGION(bytes + count, capacity - count);
  return static_cast<ssize_t>(count);
}

void ClientRun::send(std::string_view bytes) {
  require(lengthWordIsRight(bytes), "a request that is not as long as it says");
}

StatusOutcome expectedStatus(const std::optional<std::string>& message,
                             ZORA_Long statusWhenMissing) {
  constexpr ZORA_Long noAnswer = 5;
  if (!message) return {1, noAnswer};
  const std::optional<ZORA_Long> status = FieldModel(*message).nextLong(DCH_status);
  if (!status) return {1, statusWhenMissing};
  return {0, *status};
}

void setUpClient() {
  setenv("ZORA_DCH_ADDR", "127.0.0.1", 1);
  setenv("ZORA_DCH_PORT", "1919", 1);
  setenv("ZORA_DCH_TIMEOUT", "1", 1);
  setenv("ZORA_DCH_UDP_SOCKETS_IN_POOL", std::to_string(pooledSockets).c_str(), 1);
  unsetenv("ZORA_DCH_IPCTYPE");
  unsetenv("ZORA_VERBOSE");
  traceIntoNothing();
  DCH_api_init();
}

}  // namespace fuzz
