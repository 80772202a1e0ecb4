#include "suite/names.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <strings.h>
#include <sys/socket.h>

#include <chrono>
#include <cstring>
#include <mutex>

#include "suite/cancellation.h"
#include "suite/locking.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds keptSeconds{10};

// What the resolver answered lately. Names that do not fit are not kept. Its lock is never
// destroyed: threads may still ask while the process ends.
class NameCache {
 public:
  bool find(const char* name, in_addr* address) {
    const suite::Lock lock(_mutex);
    if (!lock.isHeld()) return false;
    const Entry* entry = entryOf(name);
    if (entry == nullptr || Clock::now() >= entry->expiry) return false;
    *address = entry->address;
    return true;
  }

  void keep(const char* name, in_addr address) {
    if (std::strlen(name) >= sizeof Entry::name) return;
    const suite::Lock lock(_mutex);
    if (!lock.isHeld()) return;
    Entry* entry = entryOf(name);
    if (entry == nullptr) entry = oldest();
    std::strcpy(entry->name, name);
    entry->address = address;
    entry->expiry = Clock::now() + keptSeconds;
  }

 private:
  struct Entry {
    char name[256] = "";
    in_addr address{};
    Clock::time_point expiry{};
  };

  Entry* entryOf(const char* name) {
    for (Entry& entry : _entries)
      if (std::strcmp(entry.name, name) == 0) return &entry;
    return nullptr;
  }

  Entry* oldest() {
    Entry* found = &_entries[0];
    for (Entry& entry : _entries)
      if (entry.expiry < found->expiry) found = &entry;
    return found;
  }

  std::mutex _mutex;
  Entry _entries[16];
};

constinit NameCache nameCache;

bool askResolver(const char* name, in_addr* address) {
  const suite::CancellationOff cancellationOff;  // the answer would not be freed
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_DGRAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(name, nullptr, &hints, &found) != 0) return false;
  sockaddr_in first;
  std::memcpy(&first, found->ai_addr, sizeof first);
  freeaddrinfo(found);
  *address = first.sin_addr;
  return true;
}

// Every request asks for the same address: to compare it with the last one is a tenth of reading
// it.
bool readDotted(const char* name, in_addr* address) {
  struct Read {
    char name[INET_ADDRSTRLEN];
    in_addr address;
  };
  static constinit thread_local Read last{};
  if (std::strcmp(name, last.name) == 0) {
    *address = last.address;
    return true;
  }
  if (inet_pton(AF_INET, name, address) != 1) return false;
  if (std::strlen(name) < sizeof last.name) {
    std::strcpy(last.name, name);
    last.address = *address;
  }
  return true;
}

bool resolve(const char* name, in_addr* address) {
  if (readDotted(name, address)) return true;
  if (strcasecmp(name, ZOR0_LocalHostNameString()) == 0) {
    address->s_addr = htonl(INADDR_LOOPBACK);
    return true;
  }
  if (nameCache.find(name, address)) return true;
  if (!askResolver(name, address)) return false;
  nameCache.keep(name, *address);
  return true;
}

}  // namespace

int ZOR0_ConvertNameToAddr(const char* name, int port, sockaddr_in* address) {
  if (name == nullptr || *name == '\0') return 0;
  in_addr resolved{};
  if (!resolve(name, &resolved)) return 0;
  *address = {};
  address->sin_family = AF_INET;
  address->sin_port = htons(static_cast<unsigned short>(port));
  address->sin_addr = resolved;
  return 1;
}

const char* ZOR0_LocalHostNameString() {
  return "localhost";
}
