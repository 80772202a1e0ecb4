#include "bench/process_memory.h"

#include <fstream>
#include <stdexcept>
#include <string>

long residentBytes(pid_t process) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  std::string line;
  while (std::getline(status, line)) {
    constexpr char name[] = "RssAnon:";
    if (line.starts_with(name)) return std::stol(line.substr(sizeof name)) * 1024;
  }
  throw std::runtime_error("the memory of a process cannot be read");
}
