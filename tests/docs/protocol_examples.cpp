#include "tests/docs/protocol_examples.h"

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string_view>

#include "tests/support/scripted_dch.h"
#include "zordchcl/zordchcl.h"

namespace {

// Answers online requests with a handle and all others with a status.
std::vector<std::string> answerTo(const std::string& request) {
  const bool isOnline = request.substr(10, 2) == std::string_view("\x10\x15", 2);
  return {isOnline ? onlineAnswer(0, 7) : statusAnswer(0)};
}

// Takes down what calls of the interface send.
class Recorder {
 public:
  void record(const std::string& name, const std::function<void()>& call) {
    call();
    examples[name] = _dch.waitForRequests(++_sent).back();
  }

  std::map<std::string, std::string> examples;

 private:
  ScriptedDch _dch{answerTo};
  std::size_t _sent = 0;
};

void recordProvider(Recorder* recorder) {
  ZORA_Long status = 0;
  ZORA_Long handle = 0;
  recorder->record("registration", [&] {
    dp_register(&status, "appl:HOSTMON,HMN; group:load; attr:load1,N,4,one minute;");
  });
  recorder->record("online", [&] { dp_online(&status, &handle, "HOSTMON", "load", "hostA"); });
  recorder->record("data", [&] {
    char* row = nullptr;
    ZORA_Long size = 0;
    // The same bytes on every machine: a value travels as the provider lays it out.
    const unsigned char load[] = {0x2a, 0x00, 0x00, 0x00};
    dp_formatData(&status, &row, &size, "load1", load, sizeof load, 'N');
    dp_data(&status, handle, 17, &row);
  });
  recorder->record("offline", [&] { dp_offline(&status, handle); });
  recorder->record("unregister", [&] { dp_unregister(&status, "HOSTMON"); });
}

void recordSubscriptions(Recorder* recorder) {
  void* rows = nullptr;
  recorder->record("data subscription start",
                   [&] { rows = dc_waitOnDataInitialize("HOSTMON", "load"); });
  recorder->record("data subscription stop", [&] { dc_waitOnDataDestroy(rows); });
  void* changes = nullptr;
  recorder->record("status subscription start", [&] { changes = dc_waitForDPStatusInitialize(); });
  recorder->record("status subscription stop", [&] { dc_waitForDPStatusDestroy(changes); });
}

void recordQueries(Recorder* recorder) {
  const auto ask = [&](const char* name, auto function, const char* application) {
    recorder->record(name, [=] {
      ZORA_Long length = 0;
      char* text = nullptr;
      function(&length, &text, application, 1);
      std::free(text);
    });
  };
  ask("all applications", dc_getApplications, nullptr);
  ask("one application", dc_getApplications, "HOSTMON");
  ask("attributes", dc_getApplAttributes, "HOSTMON");
  ask("help", dc_getApplHelp, "HOSTMON");
}

void recordActions(Recorder* recorder) {
  recorder->record("action", [] {
    dc_provideAction(1, "operator", "hostA", "hostA:HMN00", "restart", 42, "now");
  });
  recorder->record("action results", [] { dc_waitForActionResults(42); });
  recorder->record("deferral", [] {
    dc_deferReportRequest(reinterpret_cast<void*>(std::uintptr_t{0x12345678}), 42, 1700000000,
                          "HMN", "LOAD", "hostA");
  });
}

}  // namespace

std::map<std::string, std::string> protocolExamples() {
  Recorder recorder;
  DCH_api_init();
  recordProvider(&recorder);
  recordSubscriptions(&recorder);
  recordQueries(&recorder);
  recordActions(&recorder);

  std::map<std::string, std::string>& examples = recorder.examples;
  examples["status answer"] = statusAnswer(0);
  examples["online answer"] = onlineAnswer(0, 7);
  examples["catalogue answer"] = messageOf([](DCH_MessageBuilder& message) {
    constexpr std::string_view text = "HOSTMON,HMN,NODP,load,1\n";
    message.addBytes(DCH_response, text.data(), static_cast<ZORA_Long>(text.size()));
  });
  examples["status event"] = messageOf([](DCH_MessageBuilder& message) {
    message.add(DCH_applName, "HOSTMON")
        .add(DCH_attrGroup, "load")
        .add(DCH_sourceName, "hostA")
        .add(DCH_requestType, short{DCH_REQUEST_ONLINE});
  });
  examples["interrupt"] = messageOf(
      [](DCH_MessageBuilder& message) { message.add(DCH_sourceName, DCH_TERMINATE_TEXT); });
  return examples;
}
