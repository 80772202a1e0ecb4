// test_port.h: what the tests of the port allocation share: ports that are taken or free, product
// settings, and the lines of the allocation.
#ifndef ZORDSOCK_TEST_PORT_H
#define ZORDSOCK_TEST_PORT_H

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <vector>

#include "suite/product_settings.h"
#include "tests/support/recorded_sleep.h"
#include "tests/support/sockets.h"
#include "tests/support/temporary_files.h"
#include "tests/support/trace_lines.h"
#include "zordsock/settings.h"
#include "zordsock/test_endpoint.h"
#include "zordsock/zordsock.h"

constexpr char allocationName[] = "ipcSock::allocateDCHport";
constexpr int defaultPort = 1919;

// A port that cannot be bound while this lives: it holds the port itself, or another program does.
class TakenPort {
 public:
  explicit TakenPort(int port, std::vector<int> types = {SOCK_DGRAM, SOCK_STREAM}) {
    const sockaddr_in address = loopbackAddress(port);
    for (const int type : types) {
      const int descriptor = socket(AF_INET, type | SOCK_CLOEXEC, 0);
      _isOwn &= bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
      _descriptors.push_back(descriptor);
    }
  }
  ~TakenPort() {
    for (const int descriptor : _descriptors) close(descriptor);
  }
  TakenPort(const TakenPort&) = delete;
  TakenPort& operator=(const TakenPort&) = delete;

  // Whether no other program had it.
  bool isOwn() const { return _isOwn; }

 private:
  std::vector<int> _descriptors;
  bool _isOwn = true;
};

inline bool isFree(int port) {
  return TakenPort(port).isOwn();
}

// A port of the range that suits. The range is searched from a place that differs from process to
// process, and should lie outside the one that the system gives from (32768 to 60999).
inline int findPort(int lowest, int highest, const std::function<bool(int)>& suits = isFree) {
  const int span = highest - lowest + 1;
  const int start = static_cast<int>(getpid() % 100000) * 37;
  for (int i = 0; i < span; ++i) {
    const int port = lowest + (start + i) % span;
    if (suits(port)) return port;
  }
  throw std::runtime_error("no free port");
}

inline int findFreePort() {
  return findPort(20000, 31999);
}

// Product settings of this test's own.
class ProductSettings : public SettingsFile {
 public:
  using SettingsFile::SettingsFile;

  // Lets no update succeed: an update takes a lock on a file of this name.
  void refuseUpdates() const { std::filesystem::create_directory(path() + ".lock"); }

  // The text of a setting, "none" without.
  static std::string get(int item) {
    const char* const text = ZOR0_QueryProductSpec(item);
    return text != nullptr ? text : "none";
  }
};

// An endpoint without sockets that takes `configuredPort` for the one that was set.
class PortlessServer : public ipcSock {
 public:
  explicit PortlessServer(int configuredPort) : ipcSock(0, 0, 0) {
    zordsock::_envPortNo = static_cast<unsigned short>(configuredPort);
    unsetenv("ZORA_DCH_PORT");
    clearRecordedSleeps();
  }

  // Whether both sockets are bound to the port.
  bool serves(int port) { return sockPortUDP() == port && sockPortTCP() == port; }
};

inline std::string publishedPort() {
  const char* const port = std::getenv("ZORA_DCH_PORT");
  return port != nullptr ? port : "none";
}

// The trace of an allocation.
class AllocationTrace {
 public:
  explicit AllocationTrace(int configuredPort)
      : _lines{entryLine(),
               detailLine(textOf("At entry, DCH using socket port number %d\n", configuredPort))} {}

  AllocationTrace& add(std::initializer_list<TraceLine> lines) {
    _lines.insert(_lines.end(), lines);
    return *this;
  }
  AllocationTrace& addInstance(const char* instance, const char* product) {
    return add({detailLine(textOf("Instance <%s> of %s is being started\n", instance, product))});
  }
  AllocationTrace& addOffset(int offset) {
    return add({detailLine(textOf("ZOR2_DP_PORT_OFFSET %d is currently in effect\n", offset))});
  }

  // An attempt: the descriptors, or "-1", and the address that stands there after each.
  AllocationTrace& addAttempt(const std::string& udp, const sockaddr_in& afterUdp,
                              const std::string& tcp, const sockaddr_in& afterTcp) {
    return add({detailLine("_sockUDP[" + udp + "] bound to" + tracedAddress(afterUdp)),
                detailLine("_sockTCP[" + tcp + "] bound to" + tracedAddress(afterTcp))});
  }
  // One in which both are bound, and one in which neither is, with the address left from before.
  AllocationTrace& addBound(int port) {
    return addAttempt("{number}", loopbackAddress(port), "{number}", loopbackAddress(port));
  }
  AllocationTrace& addFailed(const sockaddr_in& left = {}) {
    return addAttempt("-1", left, "-1", left);
  }
  AllocationTrace& addRetry(int port) {
    return add({errorLine(textOf("DCH port number %d is already in use, retrying...\n", port))});
  }

  // What publishes a candidate.
  AllocationTrace& addPublished(int port) {
    return add(
        {detailLine(textOf("Assigned DCH port number to %d\n", port)),
         detailLine(textOf("ZORA_DCH_PORT environment variable now equals %d\n", port)),
         detailLine(textOf("Calling ZOR0_UpdateProductSpec with new port value <%d>\n", port))});
  }
  AllocationTrace& addPublishedOffset(int offset) {
    return add({detailLine(
        textOf("Calling ZOR0_UpdateProductSpec with new port offset value <%d>\n", offset))});
  }

  std::vector<TraceLine> success(const char* product, int port) {
    add({errorLine(textOf("Successfully opened %s DCH port %d\n", product, port)), exitLine(1)});
    return _lines;
  }
  std::vector<TraceLine> allUnavailable(const char* product) {
    add({errorLine(textOf("Error: Could not open TCP/UDP sockets bound to %s\n", product)),
         errorLine("All candidate DCH ports are unavailable.  Exiting...\n\n")});
    return _lines;
  }
  std::vector<TraceLine> lines() const { return _lines; }

 private:
  std::vector<TraceLine> _lines;
};

#endif  // ZORDSOCK_TEST_PORT_H
