// machine_addresses.h: the addresses of this machine.
#ifndef DCH_TESTKIT_MACHINE_ADDRESSES_H
#define DCH_TESTKIT_MACHINE_ADDRESSES_H

#include <ifaddrs.h>
#include <netinet/in.h>

#include <cerrno>
#include <system_error>
#include <vector>

namespace dch::testkit {

// Of IPv4; the loopback address is one of them.
inline std::vector<in_addr> machineAddresses() {
  ifaddrs* all = nullptr;
  if (getifaddrs(&all) != 0) throw std::system_error(errno, std::generic_category(), "getifaddrs");
  std::vector<in_addr> found;
  for (const ifaddrs* each = all; each != nullptr; each = each->ifa_next)
    if (each->ifa_addr != nullptr && each->ifa_addr->sa_family == AF_INET)
      found.push_back(reinterpret_cast<const sockaddr_in*>(each->ifa_addr)->sin_addr);
  freeifaddrs(all);
  return found;
}

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_MACHINE_ADDRESSES_H
