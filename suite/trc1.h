// trc1.h: the tracing facility's interface, and the one-line trace points that the library uses.
//
// A traced function opens with TRC1_FUNCTION("its name") and then says what happens in lines such
// as
//   TRC1_DETAIL("Using DCH port number: %d\n", port);
// A line whose class is off costs one load and one branch; its arguments are not evaluated.
//
// Every source folder that traces has a trace_unit.h that defines `trc1Unit`, its trace record.
//
// Threads: everything here may be called from any thread. errno is the same after a trace call as
// before it, so a trace line between a system call and its error handling is safe.
#ifndef SUITE_TRC1_H
#define SUITE_TRC1_H

#include <atomic>
#include <cstddef>

// Trace classes: the bits of the flag word.
enum TRC1_Class : unsigned {
  TRC1_CLASS_FLOW = 0x01,     // extra flow detail
  TRC1_CLASS_STORAGE = 0x02,  // allocation and release
  TRC1_CLASS_DUMP = 0x04,     // whole messages
  TRC1_CLASS_DETAIL = 0x10,   // values, states, decisions
  TRC1_CLASS_EVENTS = 0x40,   // entry and exit
  TRC1_CLASS_ERROR = 0x80,    // error lines
};

// Kinds of event.
enum TRC1_EventKind { TRC1_ENTRY = 0, TRC1_EXIT_VALUE = 1, TRC1_EXIT = 2 };

// The trace record of one source unit (a folder of the library). It lives as long as the process.
struct TRC1_Unit {
  const char* name;                // as rules name it: "zordsock"
  const char* component;           // the component id printed with each record: "ZORD410"
  std::atomic<unsigned> stamp{1};  // moves when the rules change
  // The facility's own: the units that it knows, under its lock.
  bool isEnlisted = false;
  TRC1_Unit* nextEnlisted = nullptr;
};

// The trace block of one function. `flags` is a cache that holds for `stamp` of its unit.
struct TRC1_Block {
  const char* function;
  std::size_t functionLength;
  int line;  // where the function starts
  TRC1_Unit* unit;
  std::atomic<unsigned> flags{0};
  std::atomic<unsigned> stamp{0};
};

// One record, as sinks get it. The texts are valid only during the call; `text` has no terminator
// beyond `textLength` that belongs to it, and no line end that the trace point did not write.
struct TRC1_Record {
  const char* component;
  const char* unit;
  const char* function;
  int line;
  const char* text;
  std::size_t textLength;
};

using TRC1_Sink = void (*)(void* context, const TRC1_Record& record);

// All that a trace point calls is cold: the compiler keeps such calls, and what they pass, out of
// the way of the code that runs while they are off.

// Brings the block's cache up to date and returns the class flags of its function.
[[gnu::cold]] unsigned TRC1_Sync(TRC1_Block* block);

// Writes one formatted record, attributed to the block's function and `line`.
[[gnu::cold, gnu::format(printf, 3, 4)]] void TRC1_Printf(TRC1_Block* block, int line,
                                                          const char* format, ...);

// Writes "LABEL: clientAddr <LENGTH<BYTES>>\n" with the bytes of a socket address in hexadecimal.
[[gnu::cold]] void TRC1_PrintAddress(TRC1_Block* block, int line, const char* label,
                                     const void* address, int length);

// Records an entry, an exit without a value, or an exit with a value.
[[gnu::cold]] void TRC1_Event(TRC1_Block* block, int line, TRC1_EventKind kind);
[[gnu::cold]] void TRC1_Event(TRC1_Block* block, int line, TRC1_EventKind kind, long long value);
[[gnu::cold]] void TRC1_Event(TRC1_Block* block, int line, TRC1_EventKind kind, const char* value);
[[gnu::cold]] void TRC1_Event(TRC1_Block* block, int line, TRC1_EventKind kind, const void* value);

// Replaces the rules: comma-separated PATTERN=MASK, PATTERN a shell glob over "unit/function", a
// rule without a pattern for all functions, the last match wins; masks are decimal or 0x. Where no
// rule matches the mask is 0x80. Null means the same as "". A bad rule is named once on standard
// error and skipped. Without a call, the rules are those of ZORA_TRACE.
void TRC1_Configure(const char* rules);

// Sends records to `sink` instead of the file or standard error; null goes back to those. The sink
// is called by the tracing thread, one call at a time, and must not trace or set a sink.
void TRC1_SetSink(TRC1_Sink sink, void* context);

// The class test that opens a traced function: the flags are taken once and hold for the call.
class TRC1_Scope {
 public:
  explicit TRC1_Scope(TRC1_Block* block)
      : _block(block),
        _flags(block->stamp.load(std::memory_order_acquire) ==
                       block->unit->stamp.load(std::memory_order_relaxed)
                   ? block->flags.load(std::memory_order_relaxed)
                   : TRC1_Sync(block)) {}

  bool on(unsigned traceClass) const { return (_flags & traceClass) != 0; }
  TRC1_Block* block() const { return _block; }

  void enter(int line) const {
    if (on(TRC1_CLASS_EVENTS)) [[unlikely]]
      TRC1_Event(_block, line, TRC1_ENTRY);
  }

  void leave(int line) const {
    if (on(TRC1_CLASS_EVENTS)) [[unlikely]]
      TRC1_Event(_block, line, TRC1_EXIT);
  }

  template <class Value>
  Value leave(int line, Value value) const {
    if (on(TRC1_CLASS_EVENTS)) [[unlikely]]
      TRC1_Event(_block, line, TRC1_EXIT_VALUE, value);
    return value;
  }

 private:
  TRC1_Block* const _block;
  const unsigned _flags;
};

// Opens a traced function whose records carry `name`, without events. Helpers that write records
// on behalf of a function take its `const TRC1_Scope& trc1Scope` and use the same macros.
#define TRC1_QUIET_FUNCTION(name)                                                             \
  static constinit TRC1_Block trc1Block{name, sizeof(name) - 1, __LINE__, &trc1Unit, {}, {}}; \
  const TRC1_Scope trc1Scope(&trc1Block)

// The same, with the entry event. Such a function leaves through TRC1_RETURN or TRC1_LEAVE.
#define TRC1_FUNCTION(name)  \
  TRC1_QUIET_FUNCTION(name); \
  trc1Scope.enter(__LINE__)

#define TRC1_RETURN(...) return trc1Scope.leave(__LINE__, __VA_ARGS__)
#define TRC1_LEAVE() trc1Scope.leave(__LINE__)

#define TRC1_LINE(traceClass, ...)                           \
  do {                                                       \
    if (trc1Scope.on(traceClass)) [[unlikely]]               \
      TRC1_Printf(trc1Scope.block(), __LINE__, __VA_ARGS__); \
  } while (false)

#define TRC1_ERROR(...) TRC1_LINE(TRC1_CLASS_ERROR, __VA_ARGS__)
#define TRC1_DETAIL(...) TRC1_LINE(TRC1_CLASS_DETAIL, __VA_ARGS__)
#define TRC1_STORAGE(...) TRC1_LINE(TRC1_CLASS_STORAGE, __VA_ARGS__)
#define TRC1_FLOW(...) TRC1_LINE(TRC1_CLASS_FLOW, __VA_ARGS__)

// A detail line with the bytes of a socket address.
#define TRC1_ADDRESS(label, address, length)                                  \
  do {                                                                        \
    if (trc1Scope.on(TRC1_CLASS_DETAIL)) [[unlikely]]                         \
      TRC1_PrintAddress(trc1Scope.block(), __LINE__, label, address, length); \
  } while (false)

// %p takes void pointers only; this is what trace lines pass for any other.
inline const void* TRC1_Pointer(const volatile void* pointer) {
  return const_cast<const void*>(pointer);
}

#endif  // SUITE_TRC1_H
