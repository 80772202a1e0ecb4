// locks.h: the locks of the consumer functions, made by DCH_api_init and ended by DCH_api_destroy.
#ifndef ZORDCHCL_LOCKS_H
#define ZORDCHCL_LOCKS_H

#include <pthread.h>

namespace zordchcl {

extern pthread_mutex_t _dc_waitOnDataLock;        // making a data subscription
extern pthread_mutex_t _dc_waitOnDataCancelLock;  // cancelling and ending one
extern pthread_mutex_t _dc_waitForDPStatusLock;   // making a provider-status subscription

}  // namespace zordchcl

#endif  // ZORDCHCL_LOCKS_H
