// kept_descriptor.h: a descriptor that is there when no other can be had.
#ifndef DCH_KEPT_DESCRIPTOR_H
#define DCH_KEPT_DESCRIPTOR_H

namespace dch {

// Lends its number to copies of other descriptors, one at a time, so that they can be made in a
// process that has as many open as it may. One thread.
class KeptDescriptor {
 public:
  // Throws std::system_error.
  KeptDescriptor();
  ~KeptDescriptor();
  KeptDescriptor(const KeptDescriptor&) = delete;
  KeptDescriptor& operator=(const KeptDescriptor&) = delete;

  // A copy of `descriptor`, until takeBack(); negative when that is not open. Another thread may
  // close it, and open something else with its number: check what the copy leads to.
  int lend(int descriptor) const;
  void takeBack() const;

 private:
  int _nothing;  // what stands in for a copy
  int _kept;
};

}  // namespace dch

#endif  // DCH_KEPT_DESCRIPTOR_H
