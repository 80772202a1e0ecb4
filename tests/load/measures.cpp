#include "tests/load/measures.h"

#include <dirent.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <stdexcept>
#include <string>

namespace load {

Usage usageOf(pid_t process) {
  const std::string folder = "/proc/" + std::to_string(process);
  Usage usage;
  std::ifstream status(folder + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmRSS:")) usage.residentKilobytes = std::atol(line.c_str() + 6);
    if (line.starts_with("VmHWM:")) usage.mostResidentKilobytes = std::atol(line.c_str() + 6);
  }
  DIR* const descriptors = opendir((folder + "/fd").c_str());
  if (descriptors == nullptr || usage.residentKilobytes == 0)
    throw std::runtime_error("zordchd has ended");
  while (const dirent* entry = readdir(descriptors)) usage.descriptors += entry->d_name[0] != '.';
  closedir(descriptors);
  return usage;
}

double processorSeconds(pid_t process) {
  clockid_t clock{};
  timespec time{};
  if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &time) != 0)
    throw std::runtime_error("a process has ended");
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

Quantiles quantilesOf(Latencies latencies) {
  if (latencies.empty()) throw std::runtime_error("no row was acknowledged in one of the phases");
  std::sort(latencies.begin(), latencies.end());
  const auto at = [&](double share) {
    return latencies[static_cast<std::size_t>(share * static_cast<double>(latencies.size() - 1))] /
           1000.0;
  };
  return {at(0.5), at(0.99), at(1), latencies.size()};
}

void pointLibraryTo(int port) {
  setenv("ZORA_DCH_ADDR", "127.0.0.1", 1);
  setenv("ZORA_DCH_PORT", std::to_string(port).c_str(), 1);
}

void raiseDescriptorLimit(int subscribers) {
  const auto needed = static_cast<rlim_t>(2 * subscribers + 200);
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  if (limit.rlim_max < needed)
    throw std::runtime_error("the hard limit on open files is below " + std::to_string(needed));
  limit.rlim_cur = std::max(limit.rlim_cur, needed);
  setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace load
