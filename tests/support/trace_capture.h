// trace_capture.h: takes the trace's records while it lives.
#ifndef TESTS_SUPPORT_TRACE_CAPTURE_H
#define TESTS_SUPPORT_TRACE_CAPTURE_H

#include <string>
#include <vector>

struct CapturedRecord {
  std::string component;
  std::string unit;
  std::string function;
  std::string text;
};

// One at a time. Records of all threads are taken.
class TraceCapture {
 public:
  // Sets the rules, for example "0xff" or "zordsock/*=0x10".
  explicit TraceCapture(const char* rules = "0xff");
  ~TraceCapture();
  TraceCapture(const TraceCapture&) = delete;
  TraceCapture& operator=(const TraceCapture&) = delete;

  std::vector<CapturedRecord> records() const;

  // Drops the records so far, those of a test's set-up.
  static void forget();

  // The texts of all records, or of those of one function, in order.
  std::vector<std::string> texts() const;
  std::vector<std::string> textsOf(const std::string& function) const;

  // Whether a record with exactly this text is there, and how many are.
  bool has(const std::string& text) const { return count(text) > 0; }
  int count(const std::string& text) const;

  // Waits up to twenty seconds for `times` records with exactly this text.
  bool waitFor(const std::string& text, int times = 1) const;
};

#endif  // TESTS_SUPPORT_TRACE_CAPTURE_H
