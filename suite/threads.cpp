#include "suite/threads.h"

#include <csignal>

int ZOR0_InitializeMutex(pthread_mutex_t* mutex) {
  return pthread_mutex_init(mutex, nullptr);
}

int ZOR0_InitializeCondVar(pthread_cond_t* condition) {
  return pthread_cond_init(condition, nullptr);
}

int ZOR0_CreateThread(void* (*entry)(void*), void* argument, [[maybe_unused]] int flag,
                      pthread_t* threadId) {
  pthread_attr_t attributes;
  int result = pthread_attr_init(&attributes);
  if (result != 0) return result;
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);

  // A thread inherits the mask of its creator, so there is no moment at which a signal could get
  // in.
  sigset_t allSignals;
  sigset_t callersSignals;
  sigfillset(&allSignals);
  result = pthread_sigmask(SIG_SETMASK, &allSignals, &callersSignals);
  if (result == 0) {
    pthread_t unwanted;
    result =
        pthread_create(threadId != nullptr ? threadId : &unwanted, &attributes, entry, argument);
    pthread_sigmask(SIG_SETMASK, &callersSignals, nullptr);
  }
  pthread_attr_destroy(&attributes);
  return result;
}
