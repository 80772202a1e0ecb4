// descriptor_limit.h: a process that can open only so many more descriptors.
#ifndef TESTS_SUPPORT_DESCRIPTOR_LIMIT_H
#define TESTS_SUPPORT_DESCRIPTOR_LIMIT_H

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <stdexcept>

// The address sanitizer is built with one for undefined behaviour that opens a pipe now and then,
// and ends a process that has no descriptor left for it.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool canRunWithoutDescriptors = false;
#else
inline constexpr bool canRunWithoutDescriptors = true;
#endif

// While it lives, `room` more descriptors can be opened, as long as none below the lowest free one
// is closed.
class DescriptorLimit {
 public:
  explicit DescriptorLimit(int room) {
    const int lowestFree = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (lowestFree < 0 || getrlimit(RLIMIT_NOFILE, &_before) != 0)
      throw std::runtime_error("no descriptor to begin with");
    close(lowestFree);
    rlimit limited = _before;
    limited.rlim_cur = static_cast<rlim_t>(lowestFree + room);
    if (setrlimit(RLIMIT_NOFILE, &limited) != 0) throw std::runtime_error("setrlimit failed");
  }
  ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &_before); }
  DescriptorLimit(const DescriptorLimit&) = delete;
  DescriptorLimit& operator=(const DescriptorLimit&) = delete;

 private:
  rlimit _before{};
};

#endif  // TESTS_SUPPORT_DESCRIPTOR_LIMIT_H
