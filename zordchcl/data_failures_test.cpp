// A row without memory for its work buffer.
#include <gtest/gtest.h>

#include "tests/support/failing_calls.h"
#include "tests/support/fake_transport.h"
#include "tests/support/trace_lines.h"

namespace {

TEST(RowWithoutMemory, IsStatusFour) {
  expectTrace("DCHclient::dp_formatData", [] {
    FakedClient faked;
    ZORA_Long status = 4711;
    char* row = nullptr;
    ZORA_Long size = 900;
    {
      const NoMemory noMemory;
      EXPECT_EQ(faked.client.dp_formatData(&status, &row, &size, "load1", "0.25", 4, 'D'), 1);
    }
    EXPECT_EQ(NoMemory::lastRefusedBytes(), std::size_t{DCH_WORK_BUFFER_SIZE});
    EXPECT_EQ(status, 4);
    EXPECT_EQ(row, nullptr);
    EXPECT_EQ(size, 0);
    EXPECT_EQ(faked.client._clientError, 1);
    return Lines{
        entryLine(),
        detailLine("workBuffer: [(nil)]\n"),
        detailLine("size      : [900]\n"),
        detailLine("attrType  : [D]\n"),
        detailLine("attrName  : [load1]\n"),
        detailLine("valueSize : [4]\n"),
        detailLine("attrValue : [0.25]\n"),
        errorLine("Error: allocation for workBuffer failed.\n"),
        exitLine(1),
    };
  });
}

}  // namespace
