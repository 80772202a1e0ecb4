// given_handles.h: the handles that a store has given to sources of other sites.
#ifndef DCH_TESTKIT_GIVEN_HANDLES_H
#define DCH_TESTKIT_GIVEN_HANDLES_H

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <utility>

#include "dch/core/change.h"
#include "dch/core/handles.h"
#include "dch/core/remote_names.h"
#include "dch/testkit/store_test.h"

namespace dch::testkit {

// None of them is given twice, and each source has one for good.
class GivenHandles {
 public:
  // One that came back from the store.
  void add(const RemoteSourceSeen& change, bool isKept) {
    if (!isKept) {
      EXPECT_EQ(change.handle, 0) << "what was not kept has none";
      return;
    }
    std::string key;
    makeKey(namesOf(change), &key);
    EXPECT_GE(change.handle, firstRemoteHandle) << key;
    EXPECT_EQ(_handles.emplace(key, change.handle).first->second, change.handle) << key;
    EXPECT_EQ(_names.emplace(change.handle, key).first->second, key) << change.handle;
  }

  // Those that the file of a store has. Returns how many these are.
  std::size_t addFile(const std::string& path) {
    std::istringstream lines(
        query(path, "SELECT site, application, \"group\", name, handle FROM remote_sources"));
    std::size_t count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
      std::istringstream columns(line);
      RemoteSourceSeen source;
      for (std::string* const name :
           {&source.site, &source.application, &source.group, &source.source})
        std::getline(columns, *name, '|');
      columns >> source.handle;
      add(source, true);
    }
    return count;
  }

  std::size_t count() const { return _handles.size(); }

 private:
  std::map<std::string, ZORA_Long> _handles;
  std::map<ZORA_Long, std::string> _names;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_GIVEN_HANDLES_H
