#include <climits>
#include <new>

#include "suite/zor0.h"

namespace {

// fd_set is an array of words of this size. FD_SET and FD_ISSET are no use here: they may refuse
// descriptors from FD_SETSIZE on.
constexpr int bitsPerWord = static_cast<int>(sizeof(unsigned long) * CHAR_BIT);
constexpr int wordsOfPlainSet = FD_SETSIZE / bitsPerWord;

std::size_t wordOf(int descriptor) {
  return static_cast<std::size_t>(descriptor / bitsPerWord);
}
unsigned long bitOf(int descriptor) {
  return 1UL << (descriptor % bitsPerWord);
}

}  // namespace

bool ZOR0_DescriptorSet::reset(int highest) {
  std::size_t words = wordsOfPlainSet;
  if (highest >= FD_SETSIZE) words = wordOf(highest) + 1;
  try {
    _words.assign(words, 0);
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

void ZOR0_DescriptorSet::add(int descriptor) {
  if (descriptor >= 0 && wordOf(descriptor) < _words.size())
    _words[wordOf(descriptor)] |= bitOf(descriptor);
}

bool ZOR0_DescriptorSet::contains(int descriptor) const {
  return descriptor >= 0 && wordOf(descriptor) < _words.size() &&
         (_words[wordOf(descriptor)] & bitOf(descriptor)) != 0;
}

void ZOR0_AddDescriptor(fd_set* set, int descriptor) {
  if (descriptor < 0) return;
  reinterpret_cast<unsigned long*>(set)[wordOf(descriptor)] |= bitOf(descriptor);
}

bool ZOR0_HasDescriptor(const fd_set* set, int descriptor) {
  if (descriptor < 0) return false;
  return (reinterpret_cast<const unsigned long*>(set)[wordOf(descriptor)] & bitOf(descriptor)) != 0;
}
