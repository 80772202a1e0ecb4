// zordsock.h: the socket transport: client endpoints of the data channel, and the DCH's server
// endpoint.
//
// A message travels as datagrams of at most UDP_CHUNK_SIZE bytes, in order, to one address, or over
// a stream connection; its own length word is the only framing.
#ifndef ZORDSOCK_ZORDSOCK_H
#define ZORDSOCK_ZORDSOCK_H

#include <netinet/in.h>
#include <sys/select.h>

#include "zordipc/zordipc.h"

constexpr ZORA_Long NO_SOCKET = -999;       // a descriptor that is not open
constexpr ZORA_Long UDP_CHUNK_SIZE = 8192;  // largest datagram sent or received
constexpr ZORA_Long MAX_READ_CHUNKS = 16;   // datagrams in the largest message that ipcRead takes
constexpr ZORA_Long SERVER_PIECE_SIZE = 4096;  // what the server reads of a stream at a time
constexpr ZORA_Long MAX_SERVER_PIECES = 1024;  // reaching this many in one message ends the server
constexpr ZORA_Long MAX_TCP_CLIENTS = 64;      // slots for stream connections

// Notices that the receive loop queues like messages, but without a length word: it serves, a
// connection is gone, a message broke off.
constexpr char SERVER_NOTICE_READY[] = "IPC-SERVER_READY";
constexpr char SERVER_NOTICE_DISCONNECT[] = "DP-DISCONNECT";
constexpr char SERVER_NOTICE_RESEND[] = "RESEND_MESSAGE";

// An object is used by one thread at a time, but for a server's queue, its setClientAddr and its
// ipcWrite, which its owner uses while the receiver thread runs IPCServer: that thread has no use
// for the peer address once it has queued its first notice.
class ipcSock : public DCHipc {
 public:
  ipcSock();  // not to be used: leaves an object in error

  // Opens an endpoint. `connectTo` non-zero asks a client for fresh sockets of both kinds and no
  // peer; `useFromSockPool` non-zero makes it borrow its datagram socket from the process's pool,
  // waiting for one as long as it takes. The first endpoint reads the environment, the first pooled
  // one builds the pool. The outcome is in ipcGetError(); a server whose port cannot be had ends
  // the process with status 1.
  ipcSock(short typeOfService, ZORA_Long connectTo, ZORA_Long useFromSockPool);

  // Closes what the endpoint opened itself. A borrowed socket goes back through releaseIPC first.
  ~ipcSock();

  ZORA_Long ipcRead(void** readBuffer, ZORA_Long initialWait) override;
  ZORA_Long ipcWrite(void* buffer, ZORA_Long length, unsigned int connectedSockFD) override;
  void setClientAddr(void* clientAddr, ZORA_Long clientAddrLen) override;
  ZORA_Long IPCServer() override;
  ZORA_Long IPCClient(void* clientArg, ZORA_Long connectTo, ZORA_Long typeOfService) override;
  ZORA_Long allocateIPC() override;
  ZORA_Long releaseIPC() override;
  short DCHtimeout() override;

  // Reads the five ZORA_DCH_ settings. Called once per process, under the env-vars init lock.
  void getEnvVariables();

  // The local ports of the two sockets, in host order.
  unsigned short sockPortTCP();
  unsigned short sockPortUDP();
  ZORA_Long sockUDP() const { return _sockUDP; }
  void setSockError(ZORA_Long error) { _sockError.store(error, std::memory_order_relaxed); }

  // Binds the server's two sockets to the DCH's port, or to a candidate port. Returns 1; a port
  // that cannot be had ends the process.
  ZORA_Long allocateDCHport();

  // Fills `readMask` with both sockets and every connection, and returns the highest descriptor
  // plus 1. The set must have room for that descriptor and for FD_SETSIZE descriptors at least.
  ZORA_Long sockSetSelectReadMask(fd_set* readMask);

  // A scan of the connections that are readable in `readMask`: the descriptor and its slot, or 0
  // and -1 for one that is not, or -1 at the end. Slot 63 is watched but never reported.
  void sockResetIndex();
  ZORA_Long sockCheckReadMask(fd_set* readMask, ZORA_Long* clientIndex);

  // The lowest free connection slot, -1 when there is none.
  ZORA_Long sockGetAvailableIndex();

  std::atomic<ZORA_Long> _sockError;              // 0 good, 1 failed; 2 ends the server loop
  unsigned short _sockPortTCP = 0;                // as sockPortTCP last answered
  unsigned short _sockPortUDP = 0;                // as sockPortUDP last answered
  ZORA_Long _sockTCP = NO_SOCKET;                 // stream socket
  ZORA_Long _sockUDP = NO_SOCKET;                 // datagram socket
  ZORA_Long _sockIndex = 0;                       // where the scan of the connections is
  ZORA_Long _sockClientFD[MAX_TCP_CLIENTS] = {};  // accepted connections, 0 = free
  sockaddr_in _sockAddress = {};                  // the peer
  ZORA_Long _sockAddrLen = sizeof(sockaddr_in);
  ZORA_Long _useFromSockPool = 0;

 private:
  // Steps of the operations above; they trace on behalf of the function whose scope they are given.
  void buildPool(const TRC1_Scope& trc1Scope);
  bool waitForFreeElement(const TRC1_Scope& trc1Scope);
  void openFreshSockets(const TRC1_Scope& trc1Scope);
  void openForPeer(const TRC1_Scope& trc1Scope, ZORA_Long typeOfService);
  bool openSocket(const TRC1_Scope& trc1Scope, int kind, ZORA_Long* descriptor, const char* name);
  bool writeDatagrams(const TRC1_Scope& trc1Scope, const char* message, ZORA_Long length);
  bool writeStream(const TRC1_Scope& trc1Scope, const char* message, ZORA_Long length,
                   unsigned int connectedSockFD);
  bool waitUntilWritable(const TRC1_Scope& trc1Scope);
};

#endif  // ZORDSOCK_ZORDSOCK_H
