// shared_memory.h: what processes of a benchmark share.
#ifndef BENCH_SHARED_MEMORY_H
#define BENCH_SHARED_MEMORY_H

#include <sys/mman.h>

#include <new>

// One object, all zero at first, in memory that the processes started later share. For types that
// need no destructor.
template <class T>
class SharedMemory {
 public:
  SharedMemory() {
    void* const memory =
        mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    _object = static_cast<T*>(memory);
  }
  ~SharedMemory() { munmap(_object, sizeof(T)); }
  SharedMemory(const SharedMemory&) = delete;
  SharedMemory& operator=(const SharedMemory&) = delete;

  T* operator->() const { return _object; }
  T& operator*() const { return *_object; }

 private:
  T* _object;
};

#endif  // BENCH_SHARED_MEMORY_H
