#include <pthread.h>

#include <cerrno>

#include "zora/trace_unit.h"
#include "zora/zora.h"

namespace {

pthread_mutex_t _envVarsInitLock = PTHREAD_MUTEX_INITIALIZER;

// Locks are taken so often that their entries and exits are shown only to who asks twice: with the
// events class and with ZORA_VERBOSE.
bool showsCalls(const TRC1_Scope& trc1Scope) {
  return trc1Scope.on(TRC1_CLASS_EVENTS) && VX_Debug() == 1;
}

void traceEntry(const TRC1_Scope& trc1Scope) {
  if (showsCalls(trc1Scope)) TRC1_LINE(TRC1_CLASS_EVENTS, "<<Entry>>\n");
}

int traceExit(const TRC1_Scope& trc1Scope, int result) {
  if (showsCalls(trc1Scope)) TRC1_LINE(TRC1_CLASS_EVENTS, "<<Exit: %d>>\n", result);
  return result;
}

}  // namespace

// On failure both answer errno, which the pthread calls need not have set: callers take any
// non-zero result as a failure, and existing programs print it.

int ZORA_GetLock(void* lock, void* caller) {
  TRC1_QUIET_FUNCTION("ZORA_GetLock");
  traceEntry(trc1Scope);
  if (lock == nullptr) {
    TRC1_ERROR("Error: pthread_mutex_lock failed, lock parameter is NULL [@%p]\n", caller);
    return traceExit(trc1Scope, -1);
  }
  const int code = pthread_mutex_lock(static_cast<pthread_mutex_t*>(lock));
  if (code == 0) return traceExit(trc1Scope, 0);
  const int systemError = errno;
  TRC1_ERROR("Error: pthread_mutex_lock failed, rc=%d errno=%d [@%p]\n", code, systemError, caller);
  return traceExit(trc1Scope, systemError);
}

int ZORA_ReleaseLock(void* lock, void* caller) {
  TRC1_QUIET_FUNCTION("ZORA_ReleaseLock");
  traceEntry(trc1Scope);
  if (lock == nullptr) {
    TRC1_ERROR("Error: pthread_mutex_unlock failed, lock parameter is NULL [@%p]\n", caller);
    return traceExit(trc1Scope, -1);
  }
  const int code = pthread_mutex_unlock(static_cast<pthread_mutex_t*>(lock));
  if (code == 0) return traceExit(trc1Scope, 0);
  const int systemError = errno;
  TRC1_ERROR("Error: pthread_mutex_unlock failed, rc=%d errno=%d [@%p]\n", code, systemError,
             caller);
  return traceExit(trc1Scope, systemError);
}

void* ZORA_GetEnvVarsInitLock() {
  TRC1_QUIET_FUNCTION("ZORA_GetEnvVarsInitLock");
  return &_envVarsInitLock;
}
