#include "bench/process_usage.h"

#include <ctime>
#include <fstream>
#include <stdexcept>
#include <string>

namespace {

long bytesOf(pid_t process, const std::string& name) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  std::string line;
  while (std::getline(status, line))
    if (line.starts_with(name)) return std::stol(line.substr(name.size())) * 1024;
  throw std::runtime_error("the memory of a process cannot be read");
}

}  // namespace

long residentBytes(pid_t process) {
  return bytesOf(process, "VmRSS:");
}

long ownResidentBytes(pid_t process) {
  return bytesOf(process, "RssAnon:");
}

long mostResidentBytes(pid_t process) {
  return bytesOf(process, "VmHWM:");
}

double processorMicroseconds(pid_t process) {
  clockid_t clock;
  timespec time;
  if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &time) != 0)
    throw std::runtime_error("the processor time of a process cannot be read");
  return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}
