// cancellation.h: where a thread that the program cancels (pthread_cancel) may end inside the
// library: in its waits, and nowhere else. A write of a trace line or a closed descriptor is a
// cancellation point of the system too; ending there would leave half of a step undone.
#ifndef SUITE_CANCELLATION_H
#define SUITE_CANCELLATION_H

namespace suite {

// Keeps the calling thread from being cancelled while it lives. May be nested. Lives and dies on
// one thread, like the next one.
class CancellationOff {
 public:
  CancellationOff();
  ~CancellationOff();
  CancellationOff(const CancellationOff&) = delete;
  CancellationOff& operator=(const CancellationOff&) = delete;

 private:
  int _before = 0;  // the thread's cancel state
  const int _outer;
};

// Around a wait: allows again, while it lives, what the outermost CancellationOff took away. A
// thread that is cancelled meanwhile unwinds from there, so everything that the waiting functions
// hold belongs to objects. Without a CancellationOff around it nothing changes.
class CancellationPoint {
 public:
  CancellationPoint();
  ~CancellationPoint();
  CancellationPoint(const CancellationPoint&) = delete;
  CancellationPoint& operator=(const CancellationPoint&) = delete;
};

}  // namespace suite

#endif  // SUITE_CANCELLATION_H
