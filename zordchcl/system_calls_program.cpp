// Sends one row to warm up and then another between two calls of getppid, which system_calls_test
// looks for in a trace of its system calls. Ends with 0 when both rows were answered with status 0.
#include <unistd.h>

#include "zordchcl/zordchcl.h"

namespace {

struct Row {
  Row() { dp_formatData(&status, &buffer, &size, "load1", "0.25", 4, 'D'); }
  bool send() { return dp_data(&status, 815, 17, &buffer) == 0 && status == 0; }

  ZORA_Long status = 0;
  char* buffer = nullptr;
  ZORA_Long size = 0;
};

}  // namespace

int main() {
  Row first;
  Row second;
  const bool isFirstSent = first.send();
  getppid();
  const bool isSecondSent = second.send();
  getppid();
  return isFirstSent && isSecondSent ? 0 : 1;
}
