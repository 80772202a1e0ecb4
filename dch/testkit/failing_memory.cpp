// Loaded before a program and all its libraries, lets their memory fail as planned from main() on:
// what there is before is made by libraries, which cannot say that they cannot. Programs that it
// starts have their memory.
#include "dch/testkit/failing_memory.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>

// What the C library's own functions lead to.
extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* block, std::size_t size);
extern "C" void* __libc_memalign(std::size_t alignment, std::size_t size);

namespace {

std::atomic<dch::testkit::MemoryPlan*> plan{nullptr};

void readPlan() {
  const char* const path = std::getenv("ZORD410_FAILING_MEMORY");
  if (path == nullptr) return;
  const int file = open(path, O_RDWR | O_CLOEXEC);
  void* const shared =
      mmap(nullptr, sizeof(dch::testkit::MemoryPlan), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  close(file);
  unsetenv("LD_PRELOAD");
  if (shared != MAP_FAILED) plan = static_cast<dch::testkit::MemoryPlan*>(shared);
}

bool isRefused() {
  dch::testkit::MemoryPlan* const known = plan;
  if (known == nullptr) return false;
  const std::uint64_t number = ++known->asked;
  if (number - known->firstRefused >= known->refusals) return false;
  ++known->refused;
  errno = ENOMEM;
  return true;
}

using Main = int (*)(int, char**, char**);
Main realMain = nullptr;

int mainWithPlan(int count, char** arguments, char** environment) {
  readPlan();
  return realMain(count, arguments, environment);
}

}  // namespace

#define REPLACEMENT extern "C" [[gnu::visibility("default")]]

REPLACEMENT void* malloc(std::size_t size) {
  return isRefused() ? nullptr : __libc_malloc(size);
}
REPLACEMENT void* calloc(std::size_t count, std::size_t size) {
  return isRefused() ? nullptr : __libc_calloc(count, size);
}
REPLACEMENT void* realloc(void* block, std::size_t size) {
  return isRefused() ? nullptr : __libc_realloc(block, size);
}
REPLACEMENT void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return isRefused() ? nullptr : __libc_memalign(alignment, size);
}
REPLACEMENT int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
  if (isRefused()) return ENOMEM;
  *block = __libc_memalign(alignment, size);
  return *block != nullptr ? 0 : ENOMEM;
}

// What calls main().
REPLACEMENT int __libc_start_main(Main main, int count, char** arguments, Main initialise,
                                  void (*finish)(), void (*finishLoader)(), void* stackEnd) {
  using Start = int(Main, int, char**, Main, void (*)(), void (*)(), void*);
  realMain = main;
  auto* const start = reinterpret_cast<Start*>(dlsym(RTLD_NEXT, "__libc_start_main"));
  return start(mainWithPlan, count, arguments, initialise, finish, finishLoader, stackEnd);
}
