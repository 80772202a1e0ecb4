#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <optional>
#include <utility>

#include "suite/descriptor_set.h"
#include "suite/fields.h"
#include "zordsock/strict_answers.h"
#include "zordsock/trace_unit.h"
#include "zordsock/zordsock.h"

namespace {

constexpr ZORA_Long furtherDatagramSeconds = 10;

// One message on its way in, datagram by datagram. What is not handed over is freed with it.
class IncomingMessage {
 public:
  IncomingMessage(ipcSock& endpoint, const TRC1_Scope& scope, ZORA_Long initialWait)
      : trc1Scope(scope),
        _endpoint(endpoint),
        _isStrict(zordsock::isStrict(endpoint)),
        _waitSeconds(initialWait) {
    if (initialWait > 0) _timeout = timeval{initialWait, 0};
  }

  // The answer that a cancelled thread does not wait for any more is not for the pooled socket's
  // next user.
  ~IncomingMessage() {
    if (!_isEnded && _endpoint._useFromSockPool != 0)
      zordsock::forgetOldAnswers(trc1Scope, _endpoint, _endpoint._sockUDP);
  }
  IncomingMessage(const IncomingMessage&) = delete;
  IncomingMessage& operator=(const IncomingMessage&) = delete;

  ZORA_Long read(void** readBuffer);

 private:
  using Clock = std::chrono::steady_clock;
  enum class Wait { ready, retry, timedOut };

  struct Chunk {
    std::unique_ptr<char[]> bytes;
    ZORA_Long length = 0;
  };

  void collect(void** readBuffer);
  Wait waitForDatagram();
  void setDeadline();
  bool isTimeUp();
  int selectReadable(ZORA_Long descriptor);
  Wait waitRanOut(int systemError);
  bool receiveDatagram();
  ZORA_Long receiveInto(char* bytes, sockaddr_in* sender);
  void handOver(void** readBuffer);
  void joinChunks(void** readBuffer);

  const TRC1_Scope& trc1Scope;
  ipcSock& _endpoint;
  const bool _isStrict;   // what does not come from the peer is thrown away
  bool _isEnded = false;  // stays false when the thread is cancelled in a wait
  std::array<Chunk, MAX_READ_CHUNKS> _chunks;
  ZORA_Long _chunkCount = 0;
  std::uint32_t _totalLength = 0;  // as the first datagram announces it
  std::uint32_t _totalRead = 0;
  ZORA_Long _result = 0;
  ZORA_Long _waitSeconds;
  ZORA_Long _triesUsed = 0;         // beyond the first, of the current wait
  bool _strangerCame = false;       // the datagram received last was thrown away
  Clock::time_point _deadline;      // of the current wait, where strangers may come
  std::optional<timeval> _timeout;  // none waits without limit; select() counts it down
};

std::unique_ptr<char[]> allocateBytes(std::size_t size) {
  return std::unique_ptr<char[]>(new (std::nothrow) char[size]);
}

ZORA_Long IncomingMessage::read(void** readBuffer) {
  collect(readBuffer);
  _isEnded = true;
  return _result;
}

void IncomingMessage::collect(void** readBuffer) {
  bool more = true;
  while (more) {
    if (_chunkCount == MAX_READ_CHUNKS) {
      TRC1_ERROR("Error: [@%p] Max %d number of 16K buffers already read.\n",
                 TRC1_Pointer(&_endpoint), MAX_READ_CHUNKS);
      _result = -1;
      break;
    }
    const Wait wait = waitForDatagram();
    if (wait == Wait::timedOut) return;
    if (wait == Wait::ready) more = receiveDatagram();
  }
  handOver(readBuffer);
  TRC1_DETAIL("*readBuffer set to <@%p>", *readBuffer);
}

void IncomingMessage::setDeadline() {
  if (!_timeout) return;
  _deadline = Clock::now() + std::chrono::seconds(_timeout->tv_sec) +
              std::chrono::microseconds(_timeout->tv_usec);
}

// What strangers send makes no wait longer: what it takes to throw it away counts too, which
// select() does not see.
bool IncomingMessage::isTimeUp() {
  if (!_timeout) return false;
  const auto left = std::chrono::duration_cast<std::chrono::microseconds>(_deadline - Clock::now());
  if (left.count() <= 0) return true;
  _timeout = timeval{static_cast<std::time_t>(left.count() / 1'000'000),
                     static_cast<suseconds_t>(left.count() % 1'000'000)};
  return false;
}

IncomingMessage::Wait IncomingMessage::waitForDatagram() {
  const bool goesOn = std::exchange(_strangerCame, false);
  if (goesOn && isTimeUp()) return waitRanOut(errno);
  if (_chunkCount > 0 && !goesOn) {
    _waitSeconds = furtherDatagramSeconds;
    _timeout = timeval{furtherDatagramSeconds, 0};
  }
  if (_isStrict && !goesOn) setDeadline();
  const ZORA_Long descriptor = _endpoint._sockUDP;
  TRC1_DETAIL("[@%p]Waiting on SELECT: UDP[%d] Port[%d] MaxFD[%d] WaitTime[%d]\n",
              TRC1_Pointer(&_endpoint), descriptor, _endpoint.sockPortUDP(), descriptor + 1,
              _waitSeconds);
  const int count = selectReadable(descriptor);
  const int systemError = errno;
  TRC1_DETAIL("[@%p] Select returned - count=%d errno=%d\n", TRC1_Pointer(&_endpoint), count,
              systemError);
  if (count == -1) {
    // The receive that follows blocks until a datagram comes.
    TRC1_ERROR("Error: [@%p] select - wait=%d count=%d errno=%d\n", TRC1_Pointer(&_endpoint),
               _waitSeconds, count, systemError);
    _result = -1;
  }
  return count != 0 ? Wait::ready : waitRanOut(systemError);
}

int IncomingMessage::selectReadable(ZORA_Long descriptor) {
  ZOR0_DescriptorSet readSet;
  if (!readSet.reset(descriptor)) return -1;
  readSet.add(descriptor);
  return select(descriptor + 1, readSet.get(), nullptr, nullptr, _timeout ? &*_timeout : nullptr);
}

IncomingMessage::Wait IncomingMessage::waitRanOut(int systemError) {
  if (_triesUsed >= _endpoint.ipcGetRetryRead()) {
    TRC1_DETAIL("select timed out - wait=%d count=%d errno=%d...not retrying\n", _waitSeconds, 0,
                systemError);
    return Wait::timedOut;
  }
  // A first wait is looked at again with what is left of its time, which is nothing.
  _triesUsed += 1;
  TRC1_DETAIL("[@%p] select timed out - wait=%d count=%d errno=%d...trying again\n",
              TRC1_Pointer(&_endpoint), _waitSeconds, 0, systemError);
  return Wait::retry;
}

// Returns whether the message goes on.
bool IncomingMessage::receiveDatagram() {
  Chunk& chunk = _chunks[static_cast<std::size_t>(_chunkCount)];
  chunk.bytes = allocateBytes(UDP_CHUNK_SIZE);
  if (chunk.bytes == nullptr) {
    TRC1_ERROR("Error: allocating %d bytes for ipcBuffer\n", UDP_CHUNK_SIZE);
    _result = -1;
    return true;
  }
  char* const bytes = chunk.bytes.get();
  TRC1_STORAGE(
      "Allocated ipcBuffer @%p length %d in ipcSock @%p, storing in ipcBufArray at index: %d\n",
      TRC1_Pointer(bytes), UDP_CHUNK_SIZE, TRC1_Pointer(&_endpoint), _chunkCount);
  std::memset(bytes, 0, UDP_CHUNK_SIZE);
  sockaddr_in sender;
  const ZORA_Long received = receiveInto(bytes, &sender);
  const int systemError = errno;
  if (_isStrict && received >= 0 && !zordsock::isFromPeer(trc1Scope, _endpoint, sender, received)) {
    _strangerCame = true;
    return true;
  }
  _result = received;
  if (_result < 1) {
    TRC1_STORAGE("Deleting ipcBuffer @%p, bytesRead: %d\n", TRC1_Pointer(bytes), _result);
    chunk.bytes.reset();
    TRC1_DETAIL("Nulling out ipcBuffer at ipcBufArray index %d\n", _chunkCount);
    return false;
  }
  chunk.length = _result;
  // A datagram without a whole length word announces nothing: the bytes that it lacks would come
  // with the next one, and nobody would have counted what they announce.
  if (_chunkCount == 0 && static_cast<std::size_t>(_result) >= ZOR0_LENGTH_WORD_SIZE)
    _totalLength = ZOR0_MessageLength(bytes);
  _chunkCount += 1;
  _totalRead += static_cast<std::uint32_t>(_result);
  _triesUsed = 0;
  TRC1_DETAIL("[@%p] ipcBufCount=%d totalLen=%d, bytesRead=%d, totalRead=%d, errno=%d\n",
              TRC1_Pointer(&_endpoint), _chunkCount, static_cast<int>(_totalLength), _result,
              static_cast<int>(_totalRead), systemError);
  return _totalLength > _totalRead;
}

ZORA_Long IncomingMessage::receiveInto(char* bytes, sockaddr_in* sender) {
  socklen_t senderLength = sizeof *sender;
  return static_cast<ZORA_Long>(recvfrom(_endpoint._sockUDP, bytes, UDP_CHUNK_SIZE, 0,
                                         reinterpret_cast<sockaddr*>(sender), &senderLength));
}

void IncomingMessage::handOver(void** readBuffer) {
  if (_chunkCount == 0 || _totalLength != _totalRead) {
    TRC1_ERROR("Error: [@%p] totalLen=%d, bytesRead=%d errno=%d\n", TRC1_Pointer(&_endpoint),
               static_cast<int>(_totalLength), _result, errno);
    _result = -1;
    return;
  }
  TRC1_DETAIL("recvfrom operation had no more data, totalRead: %d, ipcBufCount: %d\n",
              static_cast<int>(_totalRead), _chunkCount);
  if (_chunkCount == 1)
    *readBuffer = _chunks[0].bytes.release();
  else
    joinChunks(readBuffer);
}

void IncomingMessage::joinChunks(void** readBuffer) {
  std::unique_ptr<char[]> whole = allocateBytes(_totalRead);
  if (whole == nullptr) {
    TRC1_ERROR("Error: allocating %d bytes for completeBuffer\n", static_cast<int>(_totalRead));
    _result = -1;
    return;
  }
  TRC1_STORAGE("Allocated %d bytes for completeBuffer @%p\n", static_cast<int>(_totalRead),
               TRC1_Pointer(whole.get()));
  ZORA_Long offset = 0;
  for (ZORA_Long i = 0; i < _chunkCount; ++i) {
    const Chunk& chunk = _chunks[static_cast<std::size_t>(i)];
    TRC1_DETAIL("[%d] completeBuffer[@%p], offset[%d], buffer[%p], dataLen[%d]\n", i,
                TRC1_Pointer(whole.get()), offset, TRC1_Pointer(chunk.bytes.get()), chunk.length);
    std::memcpy(whole.get() + offset, chunk.bytes.get(), static_cast<std::size_t>(chunk.length));
    offset += chunk.length;
  }
  *readBuffer = whole.release();
  for (ZORA_Long i = 0; i < _chunkCount; ++i) {
    Chunk& chunk = _chunks[static_cast<std::size_t>(i)];
    TRC1_STORAGE("Deleting ipcBufArray[%i]: @%p\n", i, TRC1_Pointer(chunk.bytes.get()));
    chunk.bytes.reset();
  }
}

}  // namespace

ZORA_Long ipcSock::ipcRead(void** readBuffer, ZORA_Long initialWait) {
  TRC1_FUNCTION("ipcSock::ipcRead");
  TRC1_DETAIL("[@%p] Passed parms: buffer @%p, initial wait=%d\n", TRC1_Pointer(this),
              TRC1_Pointer(readBuffer), initialWait);
  TRC1_RETURN(IncomingMessage(*this, trc1Scope, initialWait).read(readBuffer));
}
