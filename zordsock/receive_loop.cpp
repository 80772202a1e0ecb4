// The server's receive loop. It runs on the receiver thread, the only one that touches the
// connection table, and puts every whole message and every connection event into the queue.
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>
#include <new>

#include "suite/descriptor_set.h"
#include "suite/fields.h"
#include "suite/osv1.h"
#include "suite/sockets.h"
#include "zordsock/stream_message.h"
#include "zordsock/trace_unit.h"
#include "zordsock/zordsock.h"

using namespace zordsock;

namespace {

constexpr int listenBacklog = 5;
constexpr int refusalPauseMilliseconds = 100;
constexpr ZORA_Long loopEnds = 2;  // the value of _sockError that ends the loop

// Whether to look for another datagram without waiting. Where each comes alone the look is in vain:
// after one such look it is tried again, after each further one twice as many datagrams go by
// first.
class Looks {
 public:
  bool isDue() { return _datagramsToPass == 0 || --_datagramsToPass == 0; }
  void hasFound() { _pause = shortestPause; }
  void hasFailed() {
    _datagramsToPass = _pause;
    _pause = std::min(2 * _pause, longestPause);
  }

 private:
  static constexpr int shortestPause = 1, longestPause = 64;

  int _datagramsToPass = 0;
  int _pause = shortestPause;
};

class ReceiveLoop {
 public:
  ReceiveLoop(ipcSock& server, const TRC1_Scope& scope)
      : trc1Scope(scope), _server(server), _streamMessage(server, scope) {}

  void start();
  void run();

 private:
  enum class Received { datagram, failure, nothing };

  ZORA_Long watchAll(ZOR0_DescriptorSet* readable);
  bool wait(ZOR0_DescriptorSet* readable, ZORA_Long limit);
  Received receiveDatagram(int flags);
  void acceptConnection();
  void pauseForDatagrams();
  void serveConnections(fd_set* readable);
  void serveConnection(ZORA_Long slot, int descriptor);
  void queueStreamMessage(const sockaddr_in& sender, int descriptor);
  void queueNotice(const char* notice, const sockaddr_in& sender, const char* senderName,
                   int descriptor);

  const TRC1_Scope& trc1Scope;
  ipcSock& _server;
  StreamMessage _streamMessage;
  std::array<char, ZOR0_MAX_REQUEST_SIZE> _datagram;
  // Who is behind each connection: receiving on a stream does not tell.
  std::array<sockaddr_in, MAX_TCP_CLIENTS> _peers{};
};

// The dotted address of a sender. Made for every datagram, so without inet_ntop, which formats with
// sprintf.
class SenderName {
 public:
  explicit SenderName(const sockaddr_in& sender) {
    const auto bytes = std::bit_cast<std::array<unsigned char, sizeof(in_addr)>>(sender.sin_addr);
    constexpr int digitsOfByte = 3;
    char* end = _text;
    for (const unsigned char byte : bytes) {
      end = std::to_chars(end, end + digitsOfByte, byte).ptr;
      *end++ = '.';
    }
    end[-1] = '\0';
  }
  const char* text() const { return _text; }

 private:
  char _text[INET_ADDRSTRLEN];
};

void ReceiveLoop::start() {
  if (listen(_server._sockTCP, listenBacklog) != 0) {
    TRC1_ERROR("Error: listen for _sockTCP failed. errno=%d\n", errno);
    _server.setSockError(1);
  } else {
    TRC1_DETAIL("listen for _sockTCP %d successful. errno=%d\n", _server._sockTCP, errno);
  }
  queueNotice(SERVER_NOTICE_READY, _server._sockAddress, nullptr, 0);
}

void ReceiveLoop::run() {
  ZOR0_DescriptorSet readable;
  Looks looks;
  bool moreMayBeThere = false;
  while (_server._sockError < loopEnds) {
    const ZORA_Long limit = watchAll(&readable);
    // Datagrams come in bursts, and select() costs more than to receive one: behind a datagram the
    // next is looked for at once. With details traced each pass waits, and so says what came of it.
    if (moreMayBeThere && !trc1Scope.on(TRC1_CLASS_DETAIL) && looks.isDue()) {
      const Received received = receiveDatagram(MSG_DONTWAIT);
      moreMayBeThere = received == Received::datagram;
      if (received != Received::nothing) {
        looks.hasFound();
        continue;
      }
      looks.hasFailed();
    }
    if (!wait(&readable, limit)) {
      _server.setSockError(loopEnds);
      break;
    }
    // One kind of socket a pass: datagrams first, then a new connection, then the connections.
    if (readable.contains(_server._sockUDP))
      moreMayBeThere = receiveDatagram(0) == Received::datagram;
    else if (readable.contains(_server._sockTCP))
      acceptConnection();
    else
      serveConnections(readable.get());
  }
}

// Returns the first argument of select(), 0 without memory.
ZORA_Long ReceiveLoop::watchAll(ZOR0_DescriptorSet* readable) {
  ZORA_Long highest = std::max(_server._sockUDP, _server._sockTCP);
  for (const ZORA_Long descriptor : _server._sockClientFD) highest = std::max(highest, descriptor);
  if (!readable->reset(highest)) return 0;
  const ZORA_Long limit = _server.sockSetSelectReadMask(readable->get());
  TRC1_DETAIL("[@%p]Waiting on SELECT: UDP[%d] TCP[%d] MaxFD[%d]", TRC1_Pointer(&_server),
              _server._sockUDP, _server._sockTCP, limit);
  return limit;
}

bool ReceiveLoop::wait(ZOR0_DescriptorSet* readable, ZORA_Long limit) {
  const int count = limit > 0 ? select(limit, readable->get(), nullptr, nullptr, nullptr) : -1;
  if (count < 1) TRC1_ERROR("Error: select failed. <%d>\n", errno);
  return count >= 1;
}

// There is only nothing where it does not wait for a datagram.
ReceiveLoop::Received ReceiveLoop::receiveDatagram(int flags) {
  char* const buffer = _datagram.data();
  // Nothing is to be cleared: what is queued ends where the datagram ends.
  TRC1_DETAIL("_sockUDP[%d] SET for reading, clearing workBuffer @%p\n", _server._sockUDP,
              TRC1_Pointer(buffer));
  sockaddr_in sender{};
  socklen_t senderLength = sizeof sender;
  const auto bytesRead =
      static_cast<ZORA_Long>(recvfrom(_server._sockUDP, buffer, _datagram.size(), flags,
                                      reinterpret_cast<sockaddr*>(&sender), &senderLength));
  // Of a socket that is none any more select() tells.
  if (bytesRead < 0 && flags == MSG_DONTWAIT && (errno == EAGAIN || errno == EBADF))
    return Received::nothing;
  TRC1_DETAIL("UDP: bytesRead=%d, errno=%d\n", bytesRead, errno);
  if (bytesRead <= 0) {
    TRC1_ERROR("Error: UDP - recvfrom failed. bytesRead <%d>, sockerr <%d>\n", bytesRead, errno);
    _server.setSockError(1);
    return Received::failure;
  }
  TRC1_ADDRESS("sockClientAddr set to", &sender, sizeof sender);
  _server.ipc_put_data(bytesRead, buffer, &sender, sizeof sender, SenderName(sender).text(), 0);
  return Received::datagram;
}

void ReceiveLoop::acceptConnection() {
  TRC1_DETAIL("_sockTCP[%d] SET for reading", _server._sockTCP);
  const ZORA_Long slot = _server.sockGetAvailableIndex();
  if (slot < 0) {
    TRC1_ERROR("Error: Maximum of %d TCP clients has been reached.\n", MAX_TCP_CLIENTS);
    pauseForDatagrams();
    return;
  }
  sockaddr_in& peer = _peers[static_cast<std::size_t>(slot)];
  socklen_t peerLength = sizeof peer;
  ZORA_Long& connection = _server._sockClientFD[slot];
  connection =
      accept4(_server._sockTCP, reinterpret_cast<sockaddr*>(&peer), &peerLength, SOCK_CLOEXEC);
  if (connection >= 0) {
    TRC1_DETAIL("_sockClientFD[%d]=[%d]", slot, connection);
    TRC1_ADDRESS("sockClientAddr set to", &peer, sizeof peer);
  } else {
    // The slot keeps the negative value: it is neither watched nor handed out again.
    TRC1_ERROR("Error: accept failed. errno=%d\n", errno);
    _server.setSockError(1);
    pauseForDatagrams();
  }
}

// A connection that cannot be taken makes the next pass begin at once, and so the one after it: the
// loop would turn without end, and use up a slot each time that accept fails. Datagrams end the
// pause.
void ReceiveLoop::pauseForDatagrams() {
  pollfd watched{_server._sockUDP, POLLIN, 0};
  poll(&watched, 1, refusalPauseMilliseconds);
}

void ReceiveLoop::serveConnections(fd_set* readable) {
  _server.sockResetIndex();
  ZORA_Long slot;
  ZORA_Long descriptor;
  while ((descriptor = _server.sockCheckReadMask(readable, &slot)) >= 0) {
    if (descriptor == 0) continue;
    TRC1_DETAIL("_sockClientFD[%d]=%d SET for reading\n", slot, descriptor);
    serveConnection(slot, descriptor);
  }
}

void ReceiveLoop::serveConnection(ZORA_Long slot, int descriptor) {
  const sockaddr_in& peer = _peers[static_cast<std::size_t>(slot)];
  _streamMessage.receive(descriptor);
  if (_streamMessage.peerGone()) {
    TRC1_DETAIL("_sockClientFD[%d]=%d closed TCP connection: continue...", slot, descriptor);
    ZOR0_CloseTheSocket(descriptor);
    _server._sockClientFD[slot] = 0;
    queueNotice(SERVER_NOTICE_DISCONNECT, peer, nullptr, descriptor);
  } else if (!_streamMessage.whole()) {
    TRC1_ERROR("Error: TCP received %d bytes, expected %d bytes\n", _streamMessage.totalRead(),
               _streamMessage.totalLength());
    queueNotice(SERVER_NOTICE_RESEND, peer, SenderName(peer).text(), descriptor);
  } else {
    queueStreamMessage(peer, descriptor);
  }
  _streamMessage.freePieces();
}

void ReceiveLoop::queueStreamMessage(const sockaddr_in& sender, int descriptor) {
  const ZORA_Long length = _streamMessage.totalRead();
  TRC1_DETAIL("recvfrom operation had no more data, totalRead: %d, ipcBufCount: %d\n", length,
              _streamMessage.pieceCount());
  TRC1_ADDRESS("sockClientAddr set to", &sender, sizeof sender);
  std::unique_ptr<char[]> joined;
  if (_streamMessage.pieceCount() > 1) joined = _streamMessage.join();
  _server.ipc_put_data(length, joined ? joined.get() : _streamMessage.firstPiece(), &sender,
                       sizeof sender, SenderName(sender).text(),
                       static_cast<unsigned int>(descriptor));
  if (joined)
    TRC1_STORAGE("Deleting completeBuffer @%p, totalRead: %d\n", TRC1_Pointer(joined.get()),
                 length);
}

void ReceiveLoop::queueNotice(const char* notice, const sockaddr_in& sender, const char* senderName,
                              int descriptor) {
  _server.ipc_put_data(static_cast<ZORA_Long>(std::strlen(notice)), notice, &sender, sizeof sender,
                       senderName, static_cast<unsigned int>(descriptor));
}

}  // namespace

ZORA_Long ipcSock::IPCServer() {
  TRC1_FUNCTION("ipcSock::IPCServer");
  std::fill(std::begin(_sockClientFD), std::end(_sockClientFD), 0);
  allocateDCHport();
  // On the heap: its buffers do not belong on a thread's stack.
  const std::unique_ptr<ReceiveLoop> loop(new (std::nothrow) ReceiveLoop(*this, trc1Scope));
  if (loop == nullptr) {
    TRC1_ERROR("Error: allocating %d bytes for the receive loop.  Exiting...\n\n",
               static_cast<int>(sizeof(ReceiveLoop)));
    OSV1_EndProcess(0);
  }
  loop->start();
  loop->run();
  TRC1_ERROR("Error: IPC errors[%d], cannot continue.\n", _sockError.load());
  TRC1_RETURN(_sockError.load());
}
