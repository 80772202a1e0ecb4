// page_under_fault.h: the real program with its page, in which something fails while a browser asks
// and a provider sends.
#ifndef DCH_TESTKIT_PAGE_UNDER_FAULT_H
#define DCH_TESTKIT_PAGE_UNDER_FAULT_H

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "dch/testkit/http_client.h"
#include "dch/testkit/server_process.h"
#include "tests/support/temporary_files.h"
#include "zora/zora.h"

namespace dch::testkit {

// What a browser asks, each in its own way.
struct PageQuestion {
  const char* name;
  const char* target;
  const char* inAnswer;  // what stands in one that is right
  bool isLive = false;   // a row that is sent meanwhile does

  friend void PrintTo(const PageQuestion& question, std::ostream* out) { *out << question.name; }
};
const std::vector<PageQuestion>& pageQuestions();

// One server for many faults: it survives each of them, and has lost nothing at the end.
class PageUnderFault {
 public:
  // Starts it with these variables, after `prepare` in its process.
  explicit PageUnderFault(const Process::Environment& environment = {},
                          void (*prepare)() = nullptr);

  pid_t processId() const { return _server.processId(); }

  // To be called while something fails: sends a row and asks. Whatever becomes of the question, the
  // row is acknowledged in the end.
  void ask(const PageQuestion& question);
  // When nothing fails any more: the same question is answered right.
  void expectRight(const PageQuestion& question);

  // At the end: what was taken for the questions is given back, what was acknowledged is kept, and
  // the server ends when it is told to.
  void expectUnharmed();

  // How often ask() was answered right, otherwise, and not at all.
  std::string summary() const;

 private:
  bool isAcknowledged(const std::string& row) const;
  bool isRight(const PageQuestion& question, const std::string& answer) const;
  std::size_t descriptors() const;
  int gauge(const char* name) const;

  const TemporaryFolder _folder;
  ServerProcess _server;
  const int _page;
  ZORA_Long _handle = 0;
  std::size_t _descriptors = 0;  // before the first fault
  std::int64_t _lastRow = 0;
  std::size_t _right = 0, _other = 0, _silent = 0;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_PAGE_UNDER_FAULT_H
