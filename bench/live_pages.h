// live_pages.h: many pages that show live what a server gets.
#ifndef BENCH_LIVE_PAGES_H
#define BENCH_LIVE_PAGES_H

#include <cstdint>

#include "bench/shared_count.h"
#include "bench/worker.h"

// Each has one stream of the group "group" of the application, as the page opens it, and reads what
// it brings. All are in one process, which ends with the object.
class LivePages {
 public:
  // Returns when all of them watch. Throws std::runtime_error when one is refused.
  LivePages(int count, int pagePort, const std::string& application);

  // How often one of them has read something.
  std::uint64_t reads() const { return _reads.value(); }

 private:
  [[noreturn]] void read(int count, int pagePort, const std::string& target);

  SharedCount _watching;
  SharedCount _reads;
  Worker _process;
};

#endif  // BENCH_LIVE_PAGES_H
