#include "tests/support/failing_memory.h"

#include <atomic>
#include <cstdlib>
#include <new>

#include "tests/support/fault_plan.h"

// There in a program that wraps malloc, whose wrapper would count the block a second time.
extern "C" [[gnu::weak]] void* __real_malloc(std::size_t size);

namespace {

std::atomic<bool> hasMemory{true};
std::atomic<std::size_t> refusedBytes{0};
std::atomic<std::size_t> allocations{0};
std::atomic<long> live{0};

void* allocate(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  if (size == 0) size = 1;
  void* block = __real_malloc != nullptr ? __real_malloc(size) : std::malloc(size);
  if (block != nullptr) live.fetch_add(1, std::memory_order_relaxed);
  return block;
}

void* allocateOrThrow(std::size_t size) {
  void* block = isToFail(SystemCall::memory) ? nullptr : allocate(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void* allocateOrNull(std::size_t size) {
  if (isToFail(SystemCall::memory)) return nullptr;
  if (hasMemory) return allocate(size);
  refusedBytes = size;
  return nullptr;
}

void release(void* block) {
  if (block != nullptr) live.fetch_sub(1, std::memory_order_relaxed);
  std::free(block);
}

}  // namespace

FailingMemory::FailingMemory() {
  hasMemory = false;
}

FailingMemory::~FailingMemory() {
  hasMemory = true;
}

std::size_t FailingMemory::lastRefusedBytes() {
  return refusedBytes;
}

std::size_t allocationCount() {
  return allocations;
}

long liveAllocations() {
  return live;
}

void* operator new(std::size_t size) {
  return allocateOrThrow(size);
}
void* operator new[](std::size_t size) {
  return allocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return allocateOrNull(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return allocateOrNull(size);
}
void operator delete(void* block) noexcept {
  release(block);
}
void operator delete[](void* block) noexcept {
  release(block);
}
void operator delete(void* block, std::size_t) noexcept {
  release(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  release(block);
}
