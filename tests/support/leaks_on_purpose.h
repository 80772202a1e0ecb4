// leaks_on_purpose.h: for tests of what the library leaves alive by design.
#ifndef TESTS_SUPPORT_LEAKS_ON_PURPOSE_H
#define TESTS_SUPPORT_LEAKS_ON_PURPOSE_H

// There only in a program that is built to look for leaks.
extern "C" {
[[gnu::weak]] void __lsan_disable();
[[gnu::weak]] void __lsan_enable();
}

// What the calling thread allocates while it lives is not reported as a leak.
class LeaksOnPurpose {
 public:
  LeaksOnPurpose() {
    if (__lsan_disable != nullptr) __lsan_disable();
  }
  ~LeaksOnPurpose() {
    if (__lsan_enable != nullptr) __lsan_enable();
  }
  LeaksOnPurpose(const LeaksOnPurpose&) = delete;
  LeaksOnPurpose& operator=(const LeaksOnPurpose&) = delete;
};

#endif  // TESTS_SUPPORT_LEAKS_ON_PURPOSE_H
