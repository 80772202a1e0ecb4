// Runs one hot path a given number of times, for a tool that counts its instructions:
//   hot_path PATH COUNT
// `server` sends rows to the zordchd at ZORA_DCH_PORT, whose instructions are the ones to count;
// the other paths run against a peer of their own.
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>

#include "bench/echo_peer.h"
#include "zordchcl/zordchcl.h"

namespace {

constexpr int attributesOfLongRow = 16;

void require(bool good, const char* what) {
  if (good) return;
  std::fprintf(stderr, "hot_path: %s failed\n", what);
  std::exit(1);
}

void appendAttribute(char** row, ZORA_Long* size) {
  const ZORA_Long value = 42;
  ZORA_Long status = 1;
  dp_formatData(&status, row, size, "attribute", &value, sizeof value, 'N');
  require(status == 0, "dp_formatData");
}

void sendRow(ZORA_Long handle, int attributes) {
  char* row = nullptr;
  ZORA_Long size = 0, status = 1;
  for (int i = 0; i < attributes; ++i) appendAttribute(&row, &size);
  constexpr short sampleType = 17;
  require(dp_data(&status, handle, sampleType, &row) == 0 && status == 0, "dp_data");
}

void sendToEcho(int count, int attributes) {
  const EchoPeer peer;
  peer.becomeDch();
  for (int i = 0; i < count; ++i) sendRow(1, attributes);
}

void sendToServer(int count) {
  ZORA_Long status = 1, handle = 0;
  dp_register(&status, "appl:HOTPATH,HOT;group:group;attr:attribute,N,4;");
  require(status == 0, "dp_register");
  dp_online(&status, &handle, "HOTPATH", "group", "host");
  require(status == 0, "dp_online");
  for (int i = 0; i < count; ++i) sendRow(handle, 1);
}

const std::map<std::string, std::function<void(int)>> paths = {
    {"row-of-1", [](int count) { sendToEcho(count, 1); }},
    {"row-of-16", [](int count) { sendToEcho(count, attributesOfLongRow); }},
    {"server", sendToServer},
};

}  // namespace

int main(int argc, char** argv) {
  const auto path = argc == 3 ? paths.find(argv[1]) : paths.end();
  const int count = argc == 3 ? std::atoi(argv[2]) : 0;
  if (path == paths.end() || count <= 0) {
    std::fprintf(stderr, "usage: hot_path row-of-1|row-of-16|server COUNT\n");
    return 64;
  }
  path->second(count);
}
