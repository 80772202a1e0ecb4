// threads.h: threads, and what they wait with.
//
// Any thread may call any function here. None throws.
#ifndef SUITE_THREADS_H
#define SUITE_THREADS_H

#include <pthread.h>

// Make a mutex and a condition with the default attributes. They return 0, or the error number.
int ZOR0_InitializeMutex(pthread_mutex_t* mutex);
int ZOR0_InitializeCondVar(pthread_cond_t* condition);

// Starts a detached thread with all signals blocked, so that a signal to the process never lands in
// it. `flag` is 1; a null `threadId` is for callers that do not ask. Returns 0, or the error
// number.
int ZOR0_CreateThread(void* (*entry)(void*), void* argument, int flag, pthread_t* threadId);

#endif  // SUITE_THREADS_H
