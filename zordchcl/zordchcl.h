/* zordchcl.h: the data channel's interface: data providers (dp_) and data consumers (dc_) talk to
 * the suite's data-collection server, the DCH. Plain C, for C and C++ programs.
 *
 * Conventions:
 *  - Result: unless a comment says otherwise a function returns 0 when the request went through and
 *    1 when it failed. A request went through when the DCH answered, whatever it answered.
 *  - Status: `*status` is set to 0 on entry, then to what went wrong on this side, or to the DCH's
 *    own answer, 0 for good:
 *      1  bad argument, or no status in the answer
 *      2  short write, or a field missing in the answer
 *      3  null argument
 *      4  no memory, or no work buffer
 *      5  no answer in time, or the read failed
 *    Any other value is the DCH's. The variable stays untouched when the library has no memory for
 *    the request.
 *  - Every request is its own conversation over a socket borrowed from the process's pool. It waits
 *    for the answer up to ZORA_DCH_TIMEOUT seconds (30) and looks once more after that.
 *  - Threads: any thread may call any function at any time, but for what is said at DCH_api_init,
 *    DCH_api_destroy and the consumer handles. Block signals in threads that wait for an answer: an
 *    interrupted wait counts as a failed read.
 *  - Texts are zero-terminated bytes and stay the caller's. Nothing is kept after the call returns,
 *    unless its comment says so.
 *  - No function throws. What went wrong is told in the trace. A process whose transport cannot be
 *    set up (an unknown host in ZORA_DCH_ADDR, an unknown ZORA_DCH_IPCTYPE) is ended with exit
 *    status 1 after a pause of a second.
 */
#ifndef ZORDCHCL_ZORDCHCL_H
#define ZORDCHCL_ZORDCHCL_H

#include "zora/zora.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Limits of the names, in characters, and the size of a provider's work buffer in bytes. */
enum {
  DCH_MAX_APPL_NAME = 20,
  DCH_MAX_ATTR_GROUP = 32,
  DCH_MAX_SOURCE_NAME = 32,
  DCH_WORK_BUFFER_SIZE = 4096
};

/* ---- The library ---------------------------------------------------------------------------- */

/* Makes the locks of the consumer functions. To be called once per process, before any other thread
 * uses the library; further calls do nothing. Providers may go without. */
void DCH_api_init(void);

/* Ends the life of those locks. The library is initialised once per process: they do not come back.
 */
void DCH_api_destroy(void);

/* Reserved: reports through the trace that it does nothing yet. `value` is not used. */
void DCH_shutdown(ZORA_Long value);

/* ---- Data providers ------------------------------------------------------------------------- */

/* Registers an application with its attribute groups. `registration` is a text of clauses that each
 * end in ';', for example
 *   "appl:HOSTMON,HMN; type:SOCK; group:load; attr:load1,D,16,one minute;"
 * A text that breaks a rule gives status 1, but the wait for an answer still takes place and then
 * replaces it, as a rule with 5. */
int dp_register(ZORA_Long* status, const char* registration);

/* Brings an attribute group of a source on line and stores the handle that the DCH gives it. The
 * handle is read whatever the DCH's status. A null or too long name sends nothing, but the wait for
 * an answer still takes place, and status 5 then replaces 3 or 1. */
int dp_online(ZORA_Long* status, ZORA_Long* handle, const char* applName, const char* attrGroup,
              const char* sourceName);

/* Appends one attribute to the row in the work buffer. Start a row with `*workBuffer` null: the
 * buffer is then allocated and `*size` set. `*size` is the length of the row so far; setting it to
 * 0 starts the row again in the same buffer. The buffer belongs to the caller until dp_data or
 * dp_actionData takes it; there is no other way to give it back.
 *
 * `attrValue` points to `valueSize` bytes, which travel as they are. `attrType` is the registered
 * letter: A C G L N numbers, D R T text, I S 16-bit numbers. A `valueSize` of 0 or less does
 * nothing. A row holds at most DCH_WORK_BUFFER_SIZE bytes: an attribute that does not fit gives
 * status 4 and leaves the row as it was. */
int dp_formatData(ZORA_Long* status, char** workBuffer, ZORA_Long* size, const char* attrName,
                  const void* attrValue, ZORA_Long valueSize, char attrType);

/* Sends the row and waits for the DCH's status. The work buffer is freed and `*workBuffer` is null
 * afterwards, whatever happened. `dataCode` is passed to the DCH as it is. */
int dp_data(ZORA_Long* status, ZORA_Long handle, short dataCode, char** workBuffer);

/* dp_data with a read timeout in seconds (0: the default) and a number of further looks for an
 * answer that did not come in time (0: none). For data that answer an action. */
int dp_actionData(ZORA_Long* status, ZORA_Long handle, short dataCode, char** workBuffer,
                  short readTimeout, short retryCount);

/* Takes the source with this handle off line. */
int dp_offline(ZORA_Long* status, ZORA_Long handle);

/* Withdraws an application's registration. */
int dp_unregister(ZORA_Long* status, const char* applName);

/* Reserved: reports through the trace that it does nothing yet. Returns 0 with status 0. */
int dp_cancel(ZORA_Long* status, ZORA_Long handle);

/* ---- Data consumers: waiting for rows ------------------------------------------------------- */

/* Subscribes to the rows of one attribute group of one application. Returns a handle for the next
 * three functions, or null: a null or too long name, no memory, or the request could not be sent.
 * There is no answer: a handle does not mean that the DCH is there. Needs DCH_api_init. */
void* dc_waitOnDataInitialize(const char* applName, const char* attrGroup);

/* Waits without limit for the next row. Returns 0 with the whole message in `buffer`, its first
 * four bytes its length in network order; -1 when the wait was cancelled, and on every later call
 * that delivers data after that; 1 on failure, after which the handle is only good to be destroyed.
 * A message longer than `bufferLength` bytes is a failure, and nothing is copied. One thread at a
 * time waits on a handle. */
int dc_waitOnData(void* handle, char* buffer, short bufferLength);

/* Breaks the wait that another thread has on `handle`, or the next one when there is none. Returns
 * 0, 1 on failure, -1 when the handle was cancelled before. */
int dc_waitOnDataCancel(void* handle);

/* Ends the subscription and frees the handle, whatever it returns: 0, 1 on failure, -1 after a
 * cancel. No thread may still be waiting on it. */
int dc_waitOnDataDestroy(void* handle);

#ifdef __cplusplus
}
#endif

#endif /* ZORDCHCL_ZORDCHCL_H */
