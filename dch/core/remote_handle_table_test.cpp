#include "dch/core/remote_handle_table.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "dch/core/handles.h"
#include "dch/store/memory_store.h"

namespace dch {
namespace {

TEST(RemoteHandleTable, EachSourceHasAHandleOfItsOwn) {
  RemoteHandleTable table;
  for (int round = 0; round < 2; ++round) {
    ZORA_Long next = firstRemoteHandle;
    for (const RemoteNames& names : std::vector<RemoteNames>{{"s", "A", "g", "host"},
                                                             {"s", "A", "g", "other"},
                                                             {"s", "A", "h", "host"},
                                                             {"s", "B", "g", "host"},
                                                             {"t", "A", "g", "host"},
                                                             {"", "", "", ""},
                                                             {"a", "bc", "", "d"},
                                                             {"a", "b", "c", "d"},
                                                             {"ab", "", "c", "d"},
                                                             {"a", "b1 c", "", "d"}})
      EXPECT_EQ(table.handleOf(names), next++);
  }
}

TEST(RemoteHandleTable, HasRoomForSoManyOfASiteAndOfAll) {
  RemoteHandleTable table;
  ZORA_Long next = firstRemoteHandle;
  for (std::size_t site = 0; site * mostRemoteSourcesOfSite < mostRemoteSources; ++site) {
    const std::string name = std::to_string(site);
    for (std::size_t source = 0; source < mostRemoteSourcesOfSite; ++source)
      ASSERT_EQ(table.handleOf({name, "A", "g", std::to_string(source)}), next++);
    EXPECT_EQ(table.handleOf({name, "A", "g", "another"}), 0);
  }
  EXPECT_EQ(table.handleOf({"another", "A", "g", "0"}), 0);
  EXPECT_EQ(table.handleOf({"0", "A", "g", "0"}), firstRemoteHandle) << "it has one";
}

class Kept : public StoreClient {
 public:
  void conclude(Entry&& entry, bool isKept) noexcept override {
    ASSERT_TRUE(isKept);
    handles.push_back(std::get<RemoteSourceSeen>(entry.change).handle);
  }
  std::vector<ZORA_Long> handles;
};

TEST(MemoryStoreTest, GivesHandles) {
  MemoryStore store;
  Kept client;
  for (const char* const source : {"host1", "host2", "host1"}) {
    Entry entry{RemoteSourceSeen{"s", "A", "g", source}};
    store.append(&entry, &client);
  }
  EXPECT_EQ(client.handles,
            (std::vector<ZORA_Long>{firstRemoteHandle, firstRemoteHandle + 1, firstRemoteHandle}));
}

}  // namespace
}  // namespace dch
