/* zordchcl.h: the data channel's interface: data providers (dp_) and data consumers (dc_) talk to
 * the suite's data-collection server, the DCH. Plain C, for C and C++ programs.
 *
 * Conventions:
 *  - Result: unless a comment says otherwise a function returns 0 when the DCH answered, whatever
 *    status it answered, and 1 on failure: the request could not be sent, no answer came in time,
 *    or what came was not of the form of its answer.
 *  - Status: `*status` is set to 0 on entry, then to what went wrong on this side, or to the DCH's
 *    own answer, 0 for good:
 *      1  bad argument; no status in the answer to a row, dp_offline or dp_unregister
 *      2  short write; no status or no handle in the answer to dp_register or dp_online
 *      3  null argument
 *      4  no memory, no room in the row, or no work buffer
 *      5  no answer in time, or the read failed
 *    Any other value is the DCH's. Without memory for the request or its transport the variable
 *    stays untouched or is 0, with the result 1.
 *    The DCH's own are 100 malformed message, 101 unknown application, 102 unknown attribute group,
 *    103 unknown attribute, 104 unknown handle, 105 not stored, 106 unknown action.
 *  - Addresses that a result is written to must not be null: they are not checked.
 *  - Every request is its own conversation over a socket borrowed from the process's pool. It waits
 *    for the answer up to ZORA_DCH_TIMEOUT seconds (30), then up to 20 seconds for each further
 *    datagram of a long one. Answers carry no number: one that comes after its request gave up is
 *    taken for the answer to a later request over the same socket, which then seems to fail with 1
 *    or 2, or gets the earlier one's status. ZOR0_STRICT_ANSWERS=Y in the environment prevents it,
 *    but for answers later than the requests of the whole pool: one in 28,000 per waiting request.
 *  - Threads: any thread may call any function at any time, but for what is said at DCH_api_init,
 *    DCH_api_destroy and the consumer handles. Block signals in threads that wait for an answer: an
 *    interrupted wait counts as a failed read.
 *  - A thread may be cancelled (pthread_cancel) while it is in any function: it ends in a wait and
 *    nowhere else, gives back what it holds, and its request may have been done or not; a row that
 *    waited for a pooled socket is still the caller's. A handle on which it waited stays good,
 *    unless a message was half there. The cancel type has to be deferred, as it is unless a program
 *    changes it.
 *  - Texts are zero-terminated bytes and stay the caller's. Nothing is kept after the call returns,
 *    unless its comment says so.
 *  - No function throws. What went wrong is told in the trace. A process whose transport cannot be
 *    set up (an unknown host in ZORA_DCH_ADDR, an unknown ZORA_DCH_IPCTYPE, no descriptor left) is
 *    ended with exit status 1 after a pause of a second.
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
  DCH_WORK_BUFFER_SIZE = 4096,
  DCH_STATUS_TEXT_SIZE = 4096 /* room of the text that dc_waitForDPStatus answers */
};

/* ---- The library ---------------------------------------------------------------------------- */

/* Makes the locks of the consumers' subscriptions. To be called once per process, before any other
 * thread uses the library; further calls do nothing. Programs without subscriptions need none. */
void DCH_api_init(void);

/* Ends the life of those locks, for good: a later DCH_api_init does not bring them back. To be
 * called at the end of the process, when no other thread uses a subscription and every handle is
 * destroyed. A lock that is gone counts as held while errno is 0, so that dc_waitOnDataDestroy
 * still frees its handle; otherwise it counts as failed, and the handle stays. */
void DCH_api_destroy(void);

/* Reserved: reports through the trace that it does nothing yet. `value` is not used. */
void DCH_shutdown(ZORA_Long value);

/* ---- Data providers ------------------------------------------------------------------------- */

/* Registers an application with its attribute groups, in place of what was registered under its
 * name before. `registration` is a text of clauses that each end in ';', for example
 *   "appl:HOSTMON,HMN; type:SOCK; group:load; attr:load1,G,4,one minute;"
 *
 * A clause is a keyword, ':' and parts with ',' between them:
 *   appl:NAME,KEY;                 first and once; NAME 1 to 20 characters, KEY 3 characters
 *   type:TYPE;                     at most once; one of ZORA_DPTypeNames, NODP when it is left out
 *   help:TEXT;                     at most once
 *   group:NAME;                    one or more; NAME 1 to 32 characters, each once
 *   attr:NAME,LETTER,SIZE[,HELP];  one or more after each group; NAME 1 to 32 characters, each once
 *                                  in its group; LETTER one of A C G L N (numbers), I S (16-bit
 *                                  numbers), D R T (text); SIZE the largest size of a value in
 *                                  bytes, 1 to 4096, that of a text with its terminating zero
 *
 * Blanks, tabs and line ends around clauses and parts do not count. No part holds one of , : ; ' "
 * (ZORA_validateHelpText takes them out of a help text), no name a control character. Without what
 * does not count the text and the application's name have at most 4061 bytes together.
 *
 * A text that breaks a rule is not sent and gives status 1; the trace names the clause. The wait
 * for an answer still takes place, and its outcome replaces the status, as a rule with 5. */
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
 * letter: A C G L N numbers of 2, 4 or 8 bytes, I S numbers of 2, D R T text with its terminating
 * zero. A `valueSize` of 0 or less does nothing. A row holds at most DCH_WORK_BUFFER_SIZE bytes: an
 * attribute that does not fit gives result 1 and status 4, and leaves the row as it was. */
int dp_formatData(ZORA_Long* status, char** workBuffer, ZORA_Long* size, const char* attrName,
                  const void* attrValue, ZORA_Long valueSize, char attrType);

/* Sends the row and waits for the DCH's status. The work buffer is freed and `*workBuffer` is null
 * afterwards, whether the row went out or not: to send a row again, build it again. Only without
 * memory for the request (its status is then untouched or 0) both stay as they were. `dataCode` is
 * passed to the DCH as it is. */
int dp_data(ZORA_Long* status, ZORA_Long handle, short dataCode, char** workBuffer);

/* dp_data with a read timeout in seconds (0: the default, less: no limit) and a number of further
 * looks for what did not come in time (0 or less: none). For data that answer an action.
 *
 * A further look for an answer of which nothing has come takes no time, so the read timeout is all
 * that such a call waits. Once part of an answer is there each look for the next datagram takes 10
 * seconds: (1 + retryCount) * 10 seconds for each of up to 15 further datagrams, which for the
 * largest count is 57 days. The DCH's answer to a row is one datagram: what is cut or foreign can
 * cost that wait, so keep the count small. */
int dp_actionData(ZORA_Long* status, ZORA_Long handle, short dataCode, char** workBuffer,
                  short readTimeout, short retryCount);

/* Takes the source with this handle off line. */
int dp_offline(ZORA_Long* status, ZORA_Long handle);

/* Withdraws an application's registration. */
int dp_unregister(ZORA_Long* status, const char* applName);

/* Reserved: reports through the trace that it does nothing yet. Returns 0 with status 0. */
int dp_cancel(ZORA_Long* status, ZORA_Long handle);

/* Reserved: these report through the trace that they do nothing yet. No message is exchanged and
 * the arguments are not used. */
void dp_waitForAction(ZORA_Long value);
void dp_provideActionResults(ZORA_Long first, ZORA_Long second);

/* ---- Data consumers: waiting for rows ------------------------------------------------------- */

/* Subscribes to the rows of one attribute group of one application. Returns a handle for the next
 * three functions, or null: a null or too long name, no memory, or the request could not be sent.
 * There is no answer: a handle does not mean that the DCH is there, and a subscription that does
 * not reach one is lost. Needs DCH_api_init.
 *
 * A call that fails for its names or because nothing could be sent leaves two sockets and some 4.5
 * KB behind, for as long as the process lives. A program that calls in a loop uses up its
 * descriptors, and the library then ends the process. So check the names before the call, against
 * DCH_MAX_APPL_NAME and DCH_MAX_ATTR_GROUP; after any other failure try again a few times, with
 * pauses, and end the process if that does not help. */
void* dc_waitOnDataInitialize(const char* applName, const char* attrGroup);

/* Waits without limit for the next row. Returns
 *    0  with the whole message in `buffer`, its first four bytes its length in network order
 *   -1  when the wait was cancelled, with the cancelling datagram in `buffer`. The handle stays
 *       cancelled: a later call takes a row as before, but returns -1 with it
 *    1  on failure, after which the handle is only good to be destroyed
 *
 * A message longer than `bufferLength` bytes is a failure, of which nothing is copied; so is an
 * empty datagram, or one that does not have the length that it says, whoever sent it: make a new
 * handle then. One thread at a time waits on a handle. */
int dc_waitOnData(void* handle, char* buffer, short bufferLength);

/* Breaks the wait that another thread has on `handle`, or the next one when there is none. Returns
 * 0, 1 on failure, -1 when a wait on the handle has been cancelled before. */
int dc_waitOnDataCancel(void* handle);

/* Ends the subscription and frees the handle. Returns 0, 1 on failure, -1 after a cancelled wait;
 * the handle is freed with any of them. To be called before DCH_api_destroy. No thread may still be
 * waiting on it. */
int dc_waitOnDataDestroy(void* handle);

/* ---- Data consumers: following provider status ---------------------------------------------- */

/* Subscribes to changes of provider status. Returns a handle for the next two functions, or null
 * when there is no memory or the request could not be sent. There is no answer: a handle does not
 * mean that the DCH is there, and a subscription that does not reach one is lost. What is said at
 * dc_waitOnDataInitialize of calls that fail holds here too, with one socket. Needs
 * DCH_api_init. */
void* dc_waitForDPStatusInitialize(void);

/* Waits without limit for the next change and returns it as text "APPLICATION,GROUP,SOURCE,CODE":
 * names of at most 20, 32 and 32 characters, a comma inside a name as it is, and in decimal the
 * code of the request that caused the change (4112 registration, 4117 on line, 4133 off line, 4128
 * unregistration). The text is the library's: do not free it, and copy it before any thread calls
 * again on any handle. Returns null on failure, which any datagram that is no such change is
 * counted as; the handle is then only good to be destroyed, and a new one to be made. No call
 * breaks a wait: give it a thread of its own, which can be cancelled. */
char* dc_waitForDPStatus(void* handle);

/* Ends the subscription and frees the handle, whatever it returns: 0, or 1 on failure. No thread
 * may still be waiting on it. */
int dc_waitForDPStatusDestroy(void* handle);

/* ---- Data consumers: the catalogue ---------------------------------------------------------- */

/* These three ask the DCH and wait `wait` seconds for the answer, without limit when that is 0 or
 * less. They return 0 with the answer's length in `*length` and the answer, with a terminating zero
 * behind it, in `*buffer`, a malloc block that the caller frees. Test `*buffer` as well: without
 * memory for the block the result is 0, `*length` the answer's, and `*buffer` null. On failure,
 * which an empty answer counts as, they return 1 with length 0 and a null buffer. `applName` has at
 * most 4077 characters; null stands for an empty one where a name is needed. The DCH cuts an answer
 * that is longer than a client reads, and ends it with the line "#truncated". */

/* The applications that the DCH knows, or the one named `applName` when that is not null, a line
 * each: NAME,KEY,TYPE,GROUPS,ONLINE with the groups separated by blanks and the number of sources
 * on line. */
int dc_getApplications(ZORA_Long* length, char** buffer, const char* applName, short wait);

/* The attributes of one application, a line each: GROUP,NAME,LETTER,SIZE,HELP. */
int dc_getApplAttributes(ZORA_Long* length, char** buffer, const char* applName, short wait);

/* The help text of one application. */
int dc_getApplHelp(ZORA_Long* length, char** buffer, const char* applName, short wait);

/* ---- Data consumers: actions and deferral --------------------------------------------------- */

/* Asks the DCH for an action. Returns 0 when the request was sent: there is no answer. The texts
 * have at most 4031 characters together; more is a failure, and nothing is sent. A null text is
 * sent as an empty one, but null `actionParms`, which stand for none, are left out.
 *
 * `actionParms` can hold a logon identity and a password. The trace's detail class (0x10) shows
 * them only up to the first keyword, "PASSWORD=" (looked for only together with
 * "MONITOR START AGENTINFO=") or " LOGONID=", and not at all without one. Two things still get
 * through: a password that stands before " LOGONID=" while the agent-info keyword is missing, and
 * the dump class (0x04), which shows the whole message. Keep both classes off where parameters are
 * secret. */
int dc_provideAction(short actionType, const char* actionOwner, const char* actionNode,
                     const char* subNode, const char* actionName, ZORA_Long actionID,
                     const char* actionParms);

/* Waits for the result of an action, as long as for any answer. Returns it; -1 when none was
 * obtained, and 1 when there was no memory for the request. A result can have these values too: the
 * DCH answers the exit status of a program, 106 when it knows no such action. */
ZORA_Long dc_waitForActionResults(ZORA_Long actionID);

/* Asks the DCH to defer a report request. `peltaObject` is passed on as a 32-bit reference and
 * never read through: on 64-bit platforms its low 32 bits travel. Returns 0 when the request was
 * sent, and also when there was no memory for it; 1 on failure. There is no answer. The texts have
 * at most 4033 characters together; a null text is sent as an empty one. */
int dc_deferReportRequest(void* peltaObject, ZORA_Long actionID, ZORA_Long currentTime,
                          const char* applKey, const char* tableName, const char* sourceName);

#ifdef __cplusplus
}
#endif

#endif /* ZORDCHCL_ZORDCHCL_H */
