// descriptor_set.h: sets for select() that hold any descriptor.
//
// A set is used by one thread at a time. Nothing here throws.
#ifndef SUITE_DESCRIPTOR_SET_H
#define SUITE_DESCRIPTOR_SET_H

#include <sys/select.h>

#include <array>
#include <climits>
#include <span>
#include <vector>

// A set for select() that has room for any descriptor, not just those below FD_SETSIZE.
class ZOR0_DescriptorSet {
 public:
  // Empties the set and makes room for descriptors 0 to `highest`. Returns false without memory,
  // which only descriptors from FD_SETSIZE on need.
  bool reset(int highest);
  void add(int descriptor);
  bool contains(int descriptor) const;
  fd_set* get() { return reinterpret_cast<fd_set*>(words().data()); }

 private:
  using Word = unsigned long;  // fd_set is an array of words of this size

  std::span<Word> words() { return _large.empty() ? std::span<Word>(_plain) : _large; }
  std::span<const Word> words() const {
    return _large.empty() ? std::span<const Word>(_plain) : _large;
  }

  std::array<Word, FD_SETSIZE / (sizeof(Word) * CHAR_BIT)> _plain{};
  std::vector<Word> _large;  // instead of the plain one, unless empty
};

// The same operations on a bare set, whose size the caller sees to: at least FD_SETSIZE bits, and
// room for the highest descriptor. A negative descriptor is ignored.
void ZOR0_ClearDescriptors(fd_set* set, int highest);
void ZOR0_AddDescriptor(fd_set* set, int descriptor);
bool ZOR0_HasDescriptor(const fd_set* set, int descriptor);

#endif  // SUITE_DESCRIPTOR_SET_H
