#include "suite/descriptor_set.h"

#include <algorithm>
#include <climits>
#include <new>

namespace {

// fd_set is an array of words of this size. FD_SET and FD_ISSET are no use here: they may refuse
// descriptors from FD_SETSIZE on.
constexpr int bitsPerWord = static_cast<int>(sizeof(unsigned long) * CHAR_BIT);

std::size_t wordOf(int descriptor) {
  return static_cast<std::size_t>(descriptor / bitsPerWord);
}
unsigned long bitOf(int descriptor) {
  return 1UL << (descriptor % bitsPerWord);
}

// Words of a set with room for `highest`, never fewer than a plain set has.
std::size_t wordsFor(int highest) {
  return wordOf(std::max(highest, FD_SETSIZE - 1)) + 1;
}

}  // namespace

bool ZOR0_DescriptorSet::reset(int highest) {
  if (highest < FD_SETSIZE) {
    _large.clear();
    _plain.fill(0);
    return true;
  }
  try {
    _large.assign(wordsFor(highest), 0);
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

void ZOR0_DescriptorSet::add(int descriptor) {
  if (descriptor >= 0 && wordOf(descriptor) < words().size())
    words()[wordOf(descriptor)] |= bitOf(descriptor);
}

bool ZOR0_DescriptorSet::contains(int descriptor) const {
  return descriptor >= 0 && wordOf(descriptor) < words().size() &&
         (words()[wordOf(descriptor)] & bitOf(descriptor)) != 0;
}

void ZOR0_ClearDescriptors(fd_set* set, int highest) {
  std::fill_n(reinterpret_cast<unsigned long*>(set), wordsFor(highest), 0UL);
}

void ZOR0_AddDescriptor(fd_set* set, int descriptor) {
  if (descriptor < 0) return;
  reinterpret_cast<unsigned long*>(set)[wordOf(descriptor)] |= bitOf(descriptor);
}

bool ZOR0_HasDescriptor(const fd_set* set, int descriptor) {
  if (descriptor < 0) return false;
  return (reinterpret_cast<const unsigned long*>(set)[wordOf(descriptor)] & bitOf(descriptor)) != 0;
}
