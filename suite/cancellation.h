// cancellation.h: a thread that the program cancels (pthread_cancel) ends in a wait of the library:
// in select(), recvfrom() or a wait for a condition. Other calls are cancellation points of the
// system too, but a thread that ended there would leave half of a step undone, hold a lock that no
// object gives back, or unwind through a destructor.
#ifndef SUITE_CANCELLATION_H
#define SUITE_CANCELLATION_H

#include <pthread.h>

namespace suite {

// Keeps the calling thread from being cancelled while it lives. May be nested.
class CancellationOff {
 public:
  CancellationOff() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &_before); }
  ~CancellationOff() { pthread_setcancelstate(_before, nullptr); }
  CancellationOff(const CancellationOff&) = delete;
  CancellationOff& operator=(const CancellationOff&) = delete;

 private:
  int _before = PTHREAD_CANCEL_ENABLE;
};

}  // namespace suite

#endif  // SUITE_CANCELLATION_H
