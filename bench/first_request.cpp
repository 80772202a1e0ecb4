// A process that sends one row to the DCH and ends: with the library, or, built with
// FIRST_REQUEST_BARE, with system calls alone. start_bench runs both.
//   first_request [memory]: prints what the process has in memory at the end
#include <cstdio>
#include <cstdlib>
#include <cstring>

#ifdef FIRST_REQUEST_BARE
#include <arpa/inet.h>
#include <sys/select.h>
#include <sys/socket.h>

static bool sendRow() {
  sockaddr_in peer{};
  peer.sin_family = AF_INET;
  peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  peer.sin_port = htons(static_cast<unsigned short>(std::atoi(std::getenv("ZORA_DCH_PORT"))));
  const int client = socket(AF_INET, SOCK_DGRAM, 0);
  char message[128] = {};
  sendto(client, message, sizeof message, 0, reinterpret_cast<const sockaddr*>(&peer), sizeof peer);
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(client, &readable);
  timeval wait{30, 0};
  if (select(client + 1, &readable, nullptr, nullptr, &wait) != 1) return false;
  return recv(client, message, sizeof message, 0) > 0;
}
#else
#include "zordchcl/zordchcl.h"

static bool sendRow() {
  constexpr int value = 42;
  constexpr short sampleType = 17;
  char* row = nullptr;
  ZORA_Long size = 0, status = 1;
  dp_formatData(&status, &row, &size, "attribute", &value, sizeof value, 'N');
  return dp_data(&status, 1, sampleType, &row) == 0 && status == 0;
}
#endif

// The lines of the kernel's report that tell of resident memory.
static void printMemory() {
  std::FILE* const status = std::fopen("/proc/self/status", "r");
  char line[256];
  while (status != nullptr && std::fgets(line, sizeof line, status) != nullptr)
    if (std::strncmp(line, "VmRSS:", 6) == 0 || std::strncmp(line, "RssAnon:", 8) == 0)
      std::fputs(line, stdout);
  if (status != nullptr) std::fclose(status);
}

int main(int argc, char**) {
  if (!sendRow()) return 1;
  if (argc > 1) printMemory();
  return 0;
}
