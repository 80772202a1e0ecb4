#include "tests/support/trace_capture.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "zora/trc1.h"

namespace {

std::mutex recordsMutex;
std::condition_variable recordAdded;
std::vector<CapturedRecord> captured;

void take(void*, const TRC1_Record& record) {
  const std::lock_guard lock(recordsMutex);
  captured.push_back({record.component, record.unit, record.function,
                      std::string(record.text, record.textLength)});
  recordAdded.notify_all();
}

int timesCaptured(const std::string& text) {
  return static_cast<int>(
      std::count_if(captured.begin(), captured.end(),
                    [&](const CapturedRecord& record) { return record.text == text; }));
}

}  // namespace

TraceCapture::TraceCapture(const char* rules) {
  forget();
  TRC1_SetSink(take, nullptr);
  TRC1_Configure(rules);
}

TraceCapture::~TraceCapture() {
  TRC1_Configure(nullptr);
  TRC1_SetSink(nullptr, nullptr);
}

void TraceCapture::forget() {
  const std::lock_guard lock(recordsMutex);
  captured.clear();
}

std::vector<CapturedRecord> TraceCapture::records() const {
  const std::lock_guard lock(recordsMutex);
  return captured;
}

std::vector<std::string> TraceCapture::texts() const {
  std::vector<std::string> result;
  for (const CapturedRecord& record : records()) result.push_back(record.text);
  return result;
}

std::vector<std::string> TraceCapture::textsOf(const std::string& function) const {
  std::vector<std::string> result;
  for (const CapturedRecord& record : records())
    if (record.function == function) result.push_back(record.text);
  return result;
}

int TraceCapture::count(const std::string& text) const {
  const std::vector<std::string> all = texts();
  return static_cast<int>(std::count(all.begin(), all.end(), text));
}

bool TraceCapture::waitFor(const std::string& text, int times) const {
  std::unique_lock lock(recordsMutex);
  return recordAdded.wait_for(lock, std::chrono::seconds(20),
                              [&] { return timesCaptured(text) >= times; });
}
