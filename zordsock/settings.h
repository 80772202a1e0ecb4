// settings.h: the transport's process-wide settings and its pool of datagram sockets. Which port a
// server takes is decided in port_choice.h; for how long a request waits, in DCHclient::read().
//
// The settings are read once, under the env-vars init lock, and every endpoint takes that lock
// before it uses them. What is read without it is atomic.
#ifndef ZORDSOCK_SETTINGS_H
#define ZORDSOCK_SETTINGS_H

#include <pthread.h>

#include <atomic>

#include "zora/zora.h"

namespace zordsock {

constexpr unsigned short defaultPort = 1919;
constexpr int defaultTimeoutSeconds = 30;
constexpr int defaultPoolSockets = 32;
constexpr int hostNameSize = 256;

// Items of the product settings.
constexpr int itemCandidatePorts = 0;  // with a value, candidates start at the configured port
constexpr int itemPort = 22;
constexpr int itemPortOffset = 23;

extern std::atomic<short> _envVarsInit;  // 1 once the environment has been read
extern std::atomic<int> _envDCHUDPInit;  // 1 once the pool has been built
extern char _envDCHname[hostNameSize];   // host name or dotted address of the DCH
// The port of the DCH; the server's allocation rewrites it.
extern std::atomic<unsigned short> _envPortNo;
extern int _envDCHtimeout;      // seconds
extern int _envTRAPEMIT;        // 1 when trap emission is asked for
extern int _envDCHUDPSocks;     // sockets in the pool
extern bool _envStrictAnswers;  // an answer is taken for its own request or not at all

struct UDPSockElement {
  unsigned short inUse;  // 1 while an endpoint holds the socket; guarded by _UDPSockLock
  ZORA_Long sockUDP;     // negative when it could not be opened; does not change
};

// Null when the pool is not built or could not be.
extern UDPSockElement* _UDPSockList;
extern pthread_mutex_t _UDPSockLock;
extern pthread_cond_t _UDPSockCond;  // signalled when an element becomes free

// The element that holds `descriptor`, null when there is none.
UDPSockElement* findPooledSocket(ZORA_Long descriptor);

}  // namespace zordsock

#endif  // ZORDSOCK_SETTINGS_H
