// shared.h: a value that a test shares with the processes that it forks.
#ifndef DCH_TESTKIT_SHARED_H
#define DCH_TESTKIT_SHARED_H

#include <sys/mman.h>

#include <new>

namespace dch::testkit {

template <class Value>
class Shared {
 public:
  Shared() : _value(map()) {}
  ~Shared() { munmap(_value, sizeof(Value)); }
  Shared(const Shared&) = delete;
  Shared& operator=(const Shared&) = delete;

  Value& operator*() const { return *_value; }
  Value* operator->() const { return _value; }

 private:
  static Value* map() {
    void* const memory =
        mmap(nullptr, sizeof(Value), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    return new (memory) Value;
  }

  Value* const _value;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_SHARED_H
