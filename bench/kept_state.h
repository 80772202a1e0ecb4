// kept_state.h: a state file of a zordchd.
#ifndef BENCH_KEPT_STATE_H
#define BENCH_KEPT_STATE_H

#include <string>

#include "dch/testkit/server_process.h"
#include "tests/support/temporary_files.h"

// The file is there while the object is. Nothing is removed from it for its size.
class KeptState {
 public:
  // `settings`: further lines of the section [store] of the configuration.
  explicit KeptState(const std::string& settings = "");

  // For a server that keeps its state there.
  dch::testkit::ServerProcess::Arguments serverArguments() const;

  // Brings that many sources of "BENCH" on line, with the handles from 1 on, and keeps that many
  // rows of theirs, while no server has the file. Throws std::runtime_error.
  void fill(int sources, int rows) const;

 private:
  std::string path() const { return _configuration.folder().path() + "/state.db"; }

  const TemporaryFile _configuration;
};

#endif  // BENCH_KEPT_STATE_H
