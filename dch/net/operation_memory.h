// operation_memory.h: room for what the loop notes about one wait, so that to wait again never
// fails for want of memory.
#ifndef DCH_NET_OPERATION_MEMORY_H
#define DCH_NET_OPERATION_MEMORY_H

#include <cstddef>
#include <new>

namespace dch {

// For one wait at a time: it is free again when the wait's function is called.
class OperationMemory {
 public:
  OperationMemory() = default;
  OperationMemory(const OperationMemory&) = delete;
  OperationMemory& operator=(const OperationMemory&) = delete;

  void* allocate(std::size_t size) {
    if (_isUsed || size > sizeof _bytes) return ::operator new(size);
    _isUsed = true;
    return _bytes;
  }
  void free(void* bytes) noexcept {
    if (bytes == _bytes)
      _isUsed = false;
    else
      ::operator delete(bytes);
  }

 private:
  // What the loop takes for a wait is half of this.
  alignas(std::max_align_t) std::byte _bytes[256];
  bool _isUsed = false;
};

// As the loop asks for it.
template <class Type>
class OperationAllocator {
 public:
  using value_type = Type;

  explicit OperationAllocator(OperationMemory& memory) : _memory(&memory) {}
  template <class Other>
  explicit(false) OperationAllocator(const OperationAllocator<Other>& other)
      : _memory(other.memory()) {}

  Type* allocate(std::size_t count) {
    return static_cast<Type*>(_memory->allocate(count * sizeof(Type)));
  }
  void deallocate(Type* objects, std::size_t) noexcept { _memory->free(objects); }

  OperationMemory* memory() const { return _memory; }
  bool operator==(const OperationAllocator&) const = default;

 private:
  OperationMemory* _memory;
};

}  // namespace dch

#endif  // DCH_NET_OPERATION_MEMORY_H
