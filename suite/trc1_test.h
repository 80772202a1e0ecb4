// trc1_test.h: what the tests of the tracing facility share.
#ifndef SUITE_TRC1_TEST_H
#define SUITE_TRC1_TEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "suite/trc1.h"

// The functions that the tests trace from.
inline constinit TRC1_Unit sock{"zordsock", "ZORD410"};
inline constinit TRC1_Unit channel{"zordchcl", "ZORDC410"};
inline constinit TRC1_Block ipcRead{"ipcSock::ipcRead", 16, 1, &sock, {}, {}};
inline constinit TRC1_Block ipcWrite{"ipcSock::ipcWrite", 17, 1, &sock, {}, {}};
inline constinit TRC1_Block dpOnline{"dp_online", 9, 1, &channel, {}, {}};

static constexpr TRC1_Unit& trc1Unit = sock;

inline bool hasFlags(TRC1_Block* block, unsigned wanted) {
  const TRC1_Scope scope(block);
  for (unsigned bit = 1; bit <= 0x80; bit <<= 1)
    if (scope.on(bit) != ((wanted & bit) != 0)) return false;
  return true;
}

// Takes records instead of the file or standard error.
class Sink {
 public:
  Sink() { TRC1_SetSink(take, this); }
  ~Sink() { TRC1_SetSink(nullptr, nullptr); }

  std::vector<std::string> texts;
  std::vector<std::string> sources;

 private:
  static void take(void* context, const TRC1_Record& record) {
    auto* sink = static_cast<Sink*>(context);
    sink->texts.emplace_back(record.text, record.textLength);
    sink->sources.push_back(std::string(record.component) + " " + record.unit + "/" +
                            record.function + ":" + std::to_string(record.line));
  }
};

// A trace file of the test's own, named in ZORA_TRACE_FILE.
class TraceFile {
 public:
  TraceFile() : _path(testing::TempDir() + "trc1_test." + std::to_string(getpid())) {
    setenv("ZORA_TRACE_FILE", _path.c_str(), 1);
  }
  ~TraceFile() { unlink(_path.c_str()); }

  std::string content() const {
    std::ostringstream text;
    text << std::ifstream(_path).rdbuf();
    return text.str();
  }

 private:
  const std::string _path;
};

#endif  // SUITE_TRC1_TEST_H
