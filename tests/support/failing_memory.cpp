#include "tests/support/failing_memory.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<bool> hasMemory{true};
std::atomic<std::size_t> refusedBytes{0};
std::atomic<std::size_t> allocations{0};

void* allocateOrThrow(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  void* block = std::malloc(size != 0 ? size : 1);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void* allocateOrNull(std::size_t size) {
  if (hasMemory) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size != 0 ? size : 1);
  }
  refusedBytes = size;
  return nullptr;
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
  std::free(block);
}
void operator delete[](void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  std::free(block);
}
