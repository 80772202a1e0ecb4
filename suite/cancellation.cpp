#include "suite/cancellation.h"

#include <pthread.h>

namespace suite {
namespace {

constexpr int outside = -1;

// The cancel state that the thread came with, `outside` while it is in no CancellationOff.
thread_local int callersState = outside;

}  // namespace

CancellationOff::CancellationOff() : _outer(callersState) {
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &_before);
  if (_outer == outside) callersState = _before;
}

CancellationOff::~CancellationOff() {
  callersState = _outer;
  pthread_setcancelstate(_before, nullptr);
}

CancellationPoint::CancellationPoint() {
  if (callersState == PTHREAD_CANCEL_ENABLE) pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
}

CancellationPoint::~CancellationPoint() {
  if (callersState == PTHREAD_CANCEL_ENABLE)
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
}

}  // namespace suite
