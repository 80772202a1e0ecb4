// memory_plan_file.h: the test's side of a program whose memory fails.
#ifndef DCH_TESTKIT_MEMORY_PLAN_FILE_H
#define DCH_TESTKIT_MEMORY_PLAN_FILE_H

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <new>
#include <stdexcept>
#include <string>

#include "dch/testkit/failing_memory.h"
#include "tests/support/process.h"

namespace dch::testkit {

// The plan, in a file that is mapped.
class MemoryPlanFile {
 public:
  explicit MemoryPlanFile(const std::string& path)
      : _path(path), _file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    if (_file < 0 || ftruncate(_file, sizeof(MemoryPlan)) != 0)
      throw std::runtime_error("no file to share");
    void* const shared =
        mmap(nullptr, sizeof(MemoryPlan), PROT_READ | PROT_WRITE, MAP_SHARED, _file, 0);
    if (shared == MAP_FAILED) throw std::runtime_error("no memory to share");
    _plan = new (shared) MemoryPlan{};
  }
  ~MemoryPlanFile() {
    munmap(_plan, sizeof *_plan);
    close(_file);
  }
  MemoryPlanFile(const MemoryPlanFile&) = delete;
  MemoryPlanFile& operator=(const MemoryPlanFile&) = delete;

  // Of a program that keeps to it.
  Process::Environment environment() const {
    return {{"LD_PRELOAD", FAILING_MEMORY_PATH}, {"ZORD410_FAILING_MEMORY", _path}};
  }

  MemoryPlan* operator->() { return _plan; }
  MemoryPlan& operator*() { return *_plan; }

 private:
  const std::string _path;
  const int _file;
  MemoryPlan* _plan;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_MEMORY_PLAN_FILE_H
