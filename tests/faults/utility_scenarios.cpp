#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "tests/faults/scenario.h"
#include "zordchcl/zordchcl.h"

namespace {

std::string initialize() {
  tested(DCH_api_init);
  return "done";
}

std::string destroy() {
  static bool isDestroyed = false;  // once per process, as the function is to be called
  if (isDestroyed) return "done";
  isDestroyed = true;
  DCH_api_init();
  tested(DCH_api_destroy);
  return "done";
}

std::string debugLevel() {
  return std::to_string(tested(VX_Debug));
}

std::string ipcType() {
  return std::to_string(tested(ZORA_GetIPCtype));
}

// ---- Locks -----------------------------------------------------------------------------------

pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;

std::string getLock() {
  const int result = tested([&] { return ZORA_GetLock(&lock, nullptr); });
  if (result != 0) return "not locked";
  pthread_mutex_unlock(&lock);
  return "locked";
}

std::string releaseLock() {
  pthread_mutex_lock(&lock);
  const int result = tested([] { return ZORA_ReleaseLock(&lock, nullptr); });
  return result == 0 ? "unlocked" : "not unlocked";
}

std::string envVarsInitLock() {
  return tested(ZORA_GetEnvVarsInitLock) != nullptr ? "a lock" : "no lock";
}

// ---- Names and texts -------------------------------------------------------------------------

std::string setSubnodeName() {
  char name[ZORA_MAX_SUBNODE_NAME + 1];
  const int result = tested(
      [&] { return ZORA_SetSubnodeName("HMN", "load", "host1", "00", name, nullptr, "X1"); });
  return result == 0 ? name : "no name";
}

std::string sourceName() {
  const char* const name = tested([] { return ZORA_GetSrcNameFromSubNodeName("host1:HMN00"); });
  return name != nullptr ? name : "no name";
}

std::string applKey() {
  char key[ZORA_APPL_KEY_LENGTH + 1];
  const int result = tested([&] { return ZORA_GetApplKeyFromSubNodeName("host1:HMN00", key); });
  return result == 0 ? key : "no key";
}

std::string checksum() {
  return tested([] { return ZORA_ComputeChecksumOnAttrGroup(""); });
}

std::string helpText() {
  char text[] = "one,two";
  tested([&] { ZORA_validateHelpText(text); });
  return text;
}

// ---- Processes and instances -----------------------------------------------------------------

std::string startProcess() {
  const pid_t child = tested([] { return ZORA_StartDPprocess("true"); });
  constexpr int notRun = 33;
  if (child == 0) _exit(notRun);
  if (child < 0) return "no child";
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? "ran" : "not run";
}

std::string setInstanceName() {
  tested([] { ZORA_SetInstanceName("inst1"); });
  return ZORA_GetInstanceName();
}

std::string getInstanceName() {
  ZORA_SetInstanceName("inst1");
  return tested(ZORA_GetInstanceName);
}

}  // namespace

std::vector<Scenario> utilityScenarios() {
  std::vector<Scenario> scenarios = {
      {"DCH_api_init", initialize, "done"},
      {"DCH_api_destroy", destroy, "done"},
      {"ZORA_GetLock",
       getLock,
       "locked",
       {{"not locked", {"Error: pthread_mutex_lock failed, rc="}}}},
      {"ZORA_ReleaseLock",
       releaseLock,
       "unlocked",
       {{"not unlocked", {"Error: pthread_mutex_unlock failed, rc="}}}},
      {"ZORA_GetEnvVarsInitLock", envVarsInitLock, "a lock"},
      {"ZORA_SetSubnodeName", setSubnodeName, "host1:HMN00_X1"},
      {"ZORA_GetSrcNameFromSubNodeName", sourceName, "host1"},
      {"ZORA_GetApplKeyFromSubNodeName", applKey, "HMN"},
      {"ZORA_ComputeChecksumOnAttrGroup", checksum, "0"},
      {"ZORA_validateHelpText", helpText, "one two"},
      {"ZORA_StartDPprocess",
       startProcess,
       "ran",
       {{"no child", {"Error: fork failed: errno="}},
        {"not run", {"Error: EXEC true failed: errno="}}}},
      {"ZORA_SetInstanceName", setInstanceName, "inst1"},
      {"ZORA_GetInstanceName", getInstanceName, "inst1"},
  };
  // A variable that cannot be read counts as one that is not set.
  Scenario debug{"VX_Debug", debugLevel, "1"};
  debug.withoutSetting = "0";
  debug.setEnvironment = [] { setenv("ZORA_VERBOSE", "Y", 1); };
  scenarios.push_back(debug);
  Scenario type{"ZORA_GetIPCtype", ipcType, "2"};
  type.withoutSetting = "1";
  type.setEnvironment = [] { setenv("ZORA_DCH_IPCTYPE", "2", 1); };
  scenarios.push_back(type);
  return scenarios;
}
