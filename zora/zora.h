/* zora.h: shared utilities of the suite, exported by libzord410.so.
 *
 * Conventions, for C and C++ callers alike:
 *  - Text is zero-terminated bytes; nothing is converted.
 *  - 32-bit values are ZORA_Long, 16-bit values are short.
 *  - No function throws; failures are results. What went wrong is told in the trace (class 0x80).
 *  - Results that point into a static buffer belong to the library; the next call overwrites them.
 */
#ifndef ZORA_ZORA_H
#define ZORA_ZORA_H

#include <limits.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A signed 32-bit value on every platform: `long` where long has 32 bits, else `int`. */
#if LONG_MAX == 2147483647L
typedef long ZORA_Long;
#else
typedef int ZORA_Long;
#endif

/* IPC types: what ZORA_GetIPCtype answers. */
enum { IPC_TYPE_SOCKET = 1, IPC_TYPE_LPC = 2 };

enum { ZORA_DP_TYPE_COUNT = 12 };

/* The four-letter names of the data-provider types, index 0 to 11: APIS APPC ASFS FILE HTTP JDBC
 * ODBC POST SNMP SOCK WBEM NODP. */
extern const char* const ZORA_DPTypeNames[ZORA_DP_TYPE_COUNT];

/* The debug level that ZORA_VERBOSE asks for: 1 when its first character is 'Y', 2 when it is 'D',
 * else 0. The variable is read once per process. Any thread may call. */
int VX_Debug(void);

/* Locks the pthread_mutex_t at `lock`. `caller` is only printed in error lines. Returns 0 when the
 * lock is held, -1 for a null lock, else the value of errno after the failed call (which can be 0).
 * Any thread may call. */
int ZORA_GetLock(void* lock, void* caller);

/* Unlocks the pthread_mutex_t at `lock`. Returns 0, -1 for a null lock, else the value of errno
 * after the failed call. Any thread may call. */
int ZORA_ReleaseLock(void* lock, void* caller);

/* The process-wide pthread_mutex_t that guards the first reading of the transport's settings. It is
 * always initialised and never destroyed. */
void* ZORA_GetEnvVarsInitLock(void);

/* The IPC type of the process: the decimal value of ZORA_DCH_IPCTYPE, 1 (IPC_TYPE_SOCKET) when it
 * is not set. A non-zero value is kept for the life of the process. Any thread may call. */
int ZORA_GetIPCtype(void);

/* Starts `program` (at most 253 characters) as a child process with no arguments: from the current
 * directory, else along PATH. Returns the child's process id, or -1 when there is no child. The
 * child is the caller's, who waits for its end (waitpid): nothing here does.
 * It returns 0 in the child when neither could be run. The caller must end that process, and with
 * _exit: exit would write out once more what the parent has not written yet. */
int ZORA_StartDPprocess(const char* program);

/* Keeps `name` as the instance name of the process: leading blanks are skipped and at most 20
 * characters are kept. Null empties it. To be called before other threads read the name.
 *
 * The name makes a server of the process one of several on its machine: when its port is 1919, it
 * takes the first free candidate port instead. Nothing else depends on it, and nobody else sees
 * it. */
void ZORA_SetInstanceName(const char* name);

/* The instance name, which may be empty. The library's own buffer: do not free or write it. */
char* ZORA_GetInstanceName(void);

/* Limits of the names below, in characters without the terminating zero. */
enum { ZORA_MAX_SUBNODE_NAME = 32, ZORA_MAX_UNTOUCHED_NAME = 70, ZORA_APPL_KEY_LENGTH = 3 };

/* Builds the subnode name "srcName:applNameRR", with "_subnodeSuffix" behind it when that is not
 * null, and cuts the source name from its left end so that the name has at most 32 characters.
 *
 * `applName` is expected to be the 3-character application key and `RR` to have 2 characters: RR
 * counts as 2 whatever its length, so a longer one makes the name longer than the limit by as much.
 * Of `srcName` and `attrGroup` the first 32 characters count. `subnodeName` has room for
 * ZORA_MAX_SUBNODE_NAME - 2 + strlen(RR) + 1 bytes: 33 with an RR of 2 characters.
 *
 * Where `subnodeNameUntouched` is not null it has room for ZORA_MAX_UNTOUCHED_NAME + 1 bytes, and
 * receives "srcName:applNameattrGroupRR" with the source name as it was given.
 *
 * Returns 0, or 1 when the untouched name would be too long, or when no cut of the source name
 * makes the subnode name short enough; `subnodeName` is then not written. Any thread may call. */
int ZORA_SetSubnodeName(const char* applName, const char* attrGroup, const char* srcName,
                        const char* RR, char* subnodeName, char* subnodeNameUntouched,
                        const char* subnodeSuffix);

/* The source name in a subnode name (of which the first 70 characters count): the text before the
 * first colon, at most 32 characters of it; colons in front are skipped, and what is behind them
 * may then end without one. Null when the name is null, has no colon or has nothing but colons. The
 * result is a static buffer that the next call, from any thread, overwrites. */
char* ZORA_GetSrcNameFromSubNodeName(const char* subnodeName);

/* Writes the application key of a subnode name (of which the first 32 characters count), the 3
 * characters behind the first colon, and a zero to `applKey`, which has room for 4. Where fewer
 * stand there, up to the end or a line end, the key is shorter. Returns 0, or 1 when an argument is
 * null, the name has no colon, or nothing stands behind it. A name of nothing but colons gives 0
 * and leaves `applKey` as it was. Any other name that begins with a colon has no key to be had:
 * with one colon in front the result is 1, with more it is 0 and what is written is of no use. Any
 * thread may call. */
int ZORA_GetApplKeyFromSubNodeName(const char* subnodeName, char* applKey);

/* The checksum of an attribute-group definition as decimal text: the low 16 bits of its CRC-32. The
 * result is a static buffer that the next call, from any thread, overwrites. */
char* ZORA_ComputeChecksumOnAttrGroup(const char* attrGroup);

/* Puts a blank in place of every , : ; ' and " in `text`. Any thread may call on its own text. */
void ZORA_validateHelpText(char* text);

#ifdef __cplusplus
}
#endif

#endif /* ZORA_ZORA_H */
