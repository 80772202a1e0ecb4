// kept_state.h: a state file of a zordchd.
#ifndef BENCH_KEPT_STATE_H
#define BENCH_KEPT_STATE_H

#include <cstdint>
#include <functional>
#include <string>

#include "dch/testkit/server_process.h"
#include "tests/support/temporary_files.h"

// The file is there while the object is. Nothing is removed from it for its size.
class KeptState {
 public:
  static constexpr char withPage[] = "[web]\nlisten = \"127.0.0.1:0\"\n";

  // `settings`: further lines of the configuration, in whose section [store] they begin.
  explicit KeptState(const std::string& settings = "");

  // For a server that keeps its state there.
  dch::testkit::ServerProcess::Arguments serverArguments() const;

  // Brings that many sources of "BENCH" on line, with the handles from 1 on, and keeps that many
  // rows of theirs, while no server has the file. Throws std::runtime_error.
  void fill(int sources, int rows) const;
  // The same with sources "host1" and on of "NUMBERS", in whose rows there are that many numbers; a
  // row comes each second, of the sources in turn, the newest one now.
  void fillNumbers(int sources, int numbers, int rows) const;

  // The number that a query gives; 0 when it gives none, as long as what it asks for is not there.
  std::int64_t number(const std::string& query) const;

 private:
  void fillIn(const std::function<void(const std::string& path)>& work) const;
  std::string path() const { return _configuration.folder().path() + "/state.db"; }

  const TemporaryFile _configuration;
};

#endif  // BENCH_KEPT_STATE_H
