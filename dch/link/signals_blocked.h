// signals_blocked.h: lets a library make threads that take no signals.
#ifndef DCH_LINK_SIGNALS_BLOCKED_H
#define DCH_LINK_SIGNALS_BLOCKED_H

#include <signal.h>

namespace dch {

// The threads that are made meanwhile by this one take no signals: those are this program's.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &_before);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &_before, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t _before;
};

}  // namespace dch

#endif  // DCH_LINK_SIGNALS_BLOCKED_H
