// zor0.h: the suite's utility library, as far as the data channel needs it.
//
// Any thread may call any function here unless its comment says otherwise. None throws.
#ifndef SUITE_ZOR0_H
#define SUITE_ZOR0_H

#include <netinet/in.h>
#include <pthread.h>
#include <sys/select.h>

#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "suite/interface_types.h"

// ---- Message fields ------------------------------------------------------------------------
//
// A message is a 4-byte length in network order that counts itself, then fields. A field is a
// 6-byte header, type code (16 bits) and number of value bytes (32 bits), both in network order,
// then the value. Fixed-width values travel in network order; text carries its terminating zero,
// which counts; DCH_attrValue is the attribute-type character followed by the provider's bytes.

constexpr std::size_t ZOR0_LENGTH_WORD_SIZE = 4;
constexpr std::size_t ZOR0_FIELD_HEADER_SIZE = 6;

// Field type codes.
enum ZOR0_FieldType : short {
  DCH_requestType = 16,
  DCH_status = 17,
  DCH_response = 18,
  DCH_applName = 32,
  DCH_applKey = 33,
  DCH_sourceName = 34,
  DCH_attrGroup = 35,
  DCH_tableName = 36,
  DCH_attrName = 80,
  DCH_attrValue = 81,
  DCH_dataCode = 112,
  DCH_handle = 128,
  DCH_actionType = 256,
  DCH_actionName = 272,
  DCH_actionID = 288,
  DCH_actionParms = 304,
  DCH_actionOwner = 336,
  DCH_currentTime = 352,
  DCH_peltaObject = 368,
};

// How the value of a field type is laid out.
enum class ZOR0_FieldLayout { unknown, fixed16, fixed32, text, bytes, attributeValue };
ZOR0_FieldLayout ZOR0_LayoutOfField(short type);

// Reads a message field by field; see ZOR0_ExtractDataField. The cursor does not own the message.
class ZOR0_FieldCursor {
 public:
  // Starts at the first field of a message of which `received` bytes are in memory. What lies
  // beyond the message's own length word, or beyond `received`, is never looked at.
  ZOR0_FieldCursor(void* message, std::size_t received);

  bool atEnd() const { return _position == _end; }

 private:
  friend short ZOR0_ExtractDataField(ZOR0_FieldCursor*, void**, ZORA_Long*, char*);
  char* _position;
  char* _end;
};

extern "C" {

// Appends one field at `position`, which lies inside the message that starts at `message`, and sets
// the message's length word to end there. Returns the number of bytes written, 0 for a type it does
// not know. Fixed-width values are passed by address in host order with `length` 0; text is taken
// to its terminating zero with `length` 0, null as empty; DCH_response and DCH_attrValue take
// `length` bytes, DCH_attrValue with the address of the attribute-type character in `attrType`. The
// caller sees to the room: ZOR0_FieldSize tells what a field takes.
ZORA_Long ZOR0_FormatDataField(void* message, void* position, short type, const void* value,
                               ZORA_Long length, const char* attrType);

}  // extern "C"

// The number of bytes that ZOR0_FormatDataField writes for the same arguments.
std::size_t ZOR0_FieldSize(short type, const void* value, ZORA_Long length);

// Reads the field at the cursor and moves the cursor past it. Stores the address of the value,
// which lies in the message, and the number of value bytes; a fixed-width value is turned to host
// order in place, so a message is read once. For DCH_attrValue the value starts past the type
// character, which is stored through `attrType` when that is not null. Returns the type code. A
// field that does not fit its message, a fixed-width field of another width, a text without a
// terminating zero among its bytes and the end of the message give 0, a null value and length 0,
// and leave the cursor at the end; an unknown type that fits is returned as it is, with its bytes.
short ZOR0_ExtractDataField(ZOR0_FieldCursor* cursor, void** value, ZORA_Long* length,
                            char* attrType);

// The length word of a message, in host order. Four bytes must be there.
std::uint32_t ZOR0_MessageLength(const void* message);

// ---- Sockets and names ---------------------------------------------------------------------

enum ZOR0_SocketKind { SOCK_KIND_TCP = 1, SOCK_KIND_UDP = 2 };

// Flags of ZOR0_OpenLocalSocket.
enum ZOR0_SocketFlag {
  ZOR0_SOCKET_PLAIN = 0,
  // A stream socket may take a port whose last owner has just closed. Datagram sockets ignore it:
  // there the option would let two servers share a port.
  ZOR0_SOCKET_REUSE = 1,
  // Bound to the loopback interface whatever the port.
  ZOR0_SOCKET_LOOPBACK = 2,
};

// Opens a close-on-exec socket of `kind` bound to `portInNetworkOrder`, 0 for any free one. Without
// ZOR0_SOCKET_LOOPBACK a socket on any free port is bound to every interface, and one on a given
// port to the address that ZOR0_BIND_ADDR names, 127.0.0.1 by default. Fills `address` with what it
// bound. `*errorOut` becomes 0, or the system's error number. Returns the descriptor, or -1.
int ZOR0_OpenLocalSocket(int kind, unsigned short portInNetworkOrder, sockaddr_in* address,
                         int flag, int* errorOut);

// The local port of a socket in host order, 0 when it has none.
unsigned short ZOR0_RetrieveSockPort(int descriptor);

// Closes a socket. A descriptor that is not open is ignored.
void ZOR0_CloseTheSocket(int descriptor);

// Fills `address` with the IPv4 address of `name` and with `port` (host order). Dotted addresses
// and "localhost" need no resolver, and what was resolved is kept for 10 seconds. Returns 1, or 0
// when the name is null, empty or unknown.
int ZOR0_ConvertNameToAddr(const char* name, int port, sockaddr_in* address);

// The name under which this host reaches its own loopback interface: always "localhost".
const char* ZOR0_LocalHostNameString();

// A set for select() that has room for any descriptor, not just those below FD_SETSIZE.
class ZOR0_DescriptorSet {
 public:
  // Empties the set and makes room for descriptors 0 to `highest`. Returns false without memory,
  // which only descriptors from FD_SETSIZE on need.
  bool reset(int highest);
  void add(int descriptor);
  bool contains(int descriptor) const;
  fd_set* get() { return reinterpret_cast<fd_set*>(words().data()); }

 private:
  using Word = unsigned long;  // fd_set is an array of words of this size

  std::span<Word> words() { return _large.empty() ? std::span<Word>(_plain) : _large; }
  std::span<const Word> words() const {
    return _large.empty() ? std::span<const Word>(_plain) : _large;
  }

  std::array<Word, FD_SETSIZE / (sizeof(Word) * CHAR_BIT)> _plain{};
  std::vector<Word> _large;  // instead of the plain one, unless empty
};

// The same operations on a bare set, whose size the caller sees to: at least FD_SETSIZE bits, and
// room for the highest descriptor. A negative descriptor is ignored.
void ZOR0_ClearDescriptors(fd_set* set, int highest);
void ZOR0_AddDescriptor(fd_set* set, int descriptor);
bool ZOR0_HasDescriptor(const fd_set* set, int descriptor);

// ---- Threads and locks ---------------------------------------------------------------------

int ZOR0_InitializeMutex(pthread_mutex_t* mutex);
int ZOR0_InitializeCondVar(pthread_cond_t* condition);

// Starts a detached thread with all signals blocked, so that a signal to the process never lands in
// it. `flag` is 1. Returns 0, or the error number.
int ZOR0_CreateThread(void* (*entry)(void*), void* argument, int flag, pthread_t* threadId);

// ---- Product settings ----------------------------------------------------------------------
//
// Lines ITEM=TEXT in the file that ZOR0_PRODUCT_SPEC names, else in /var/lib/zord410/product.spec
// if that exists, else in the memory of the process.

// The text of a setting, or null when it has none; item 3, the product name, is "ZORA" by default.
// Valid until the calling thread asks for the same item again.
const char* ZOR0_QueryProductSpec(int item);

// Stores the text of a setting. Readers in any process see the old file or the new one, never half
// of one, and updates of several processes do not undo each other. Returns 1, or 0 when the text
// holds a line end or the file cannot be written.
int ZOR0_UpdateProductSpec(int item, const char* text);

// ---- Text, memory, checksum ----------------------------------------------------------------

// Keeps the rightmost `keep` of the `length` characters of `text`, in place.
void ZOR0_TruncateFromLeft(char* text, int length, int keep);

// Takes the next token of `text`, as strtok does; each thread has its own place.
char* ZOR0_strtok(char* text, const char* delimiters);

// CRC-32 (ISO-HDLC, as in zlib).
std::uint32_t ZOR0_ComputeCheckSum(const void* data, std::size_t length);

// Non-zero when the address may be used: it is not null.
int ZOR0_IsValidPointer(const void* pointer);

// Writes a hexadecimal dump of `length` bytes from `offset` on to the trace, 16 bytes a record.
void ZOR0_PrintDump(const void* buffer, int offset, int length);

#endif  // SUITE_ZOR0_H
