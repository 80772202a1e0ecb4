// descriptor.h: an open descriptor that is closed with its owner.
#ifndef DCH_NET_DESCRIPTOR_H
#define DCH_NET_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace dch {

class Descriptor {
 public:
  Descriptor() = default;
  // Takes it; a negative one is none.
  explicit Descriptor(int descriptor) : _descriptor(descriptor) {}
  ~Descriptor() { reset(); }
  Descriptor(Descriptor&& other) noexcept : _descriptor(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    reset();
    _descriptor = other.release();
    return *this;
  }

  int get() const { return _descriptor; }
  bool isOpen() const { return _descriptor >= 0; }
  // The caller's from now on.
  int release() { return std::exchange(_descriptor, none); }

 private:
  static constexpr int none = -1;

  void reset() {
    if (isOpen()) close(_descriptor);
  }

  int _descriptor = none;
};

}  // namespace dch

#endif  // DCH_NET_DESCRIPTOR_H
