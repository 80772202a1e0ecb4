#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "suite/dump.h"
#include "suite/trc1_test.h"
#include "tests/support/trace_capture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> dumped(const std::string& bytes, int offset, int length) {
  const TraceCapture trace("0xff");
  ZOR0_PrintDump(bytes.data(), offset, length);
  return trace.texts();
}

TEST(Dump, ShowsSixteenBytesARecord) {
  EXPECT_THAT(dumped(std::string("0123456789abcdef\x00\x7f~\xff", 20), 0, 20),
              ElementsAre("0000  30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66  "
                          "|0123456789abcdef|\n",
                          "0010  00 7f 7e ff                                      |..~.|\n"));
}

TEST(Dump, StartsAtTheOffset) {
  EXPECT_THAT(dumped("abcdef", 2, 3),
              ElementsAre("0002  63 64 65" + std::string(41, ' ') + "|cde|\n"));
}

TEST(Dump, ExactlyOneLineHasNoSecond) {
  EXPECT_EQ(dumped(std::string(16, 'x'), 0, 16).size(), 1u);
  EXPECT_EQ(dumped(std::string(17, 'x'), 0, 17).size(), 2u);
}

TEST(Dump, OfNothingIsNothing) {
  EXPECT_THAT(dumped("abc", 0, 0), IsEmpty());
  EXPECT_THAT(dumped("abc", 0, -5), IsEmpty());
  EXPECT_THAT(dumped("abc", -1, 2), IsEmpty());
  const TraceCapture trace("0xff");
  ZOR0_PrintDump(nullptr, 0, 16);
  EXPECT_THAT(trace.texts(), IsEmpty());
}

TEST(Dump, IsForWhoeverAskedWhateverItsOwnRule) {
  const TraceCapture trace("zordsock/*=0xff,suite/*=0");
  ZOR0_PrintDump("abc", 0, 3);
  EXPECT_EQ(trace.texts().size(), 1u);
}

TEST(TraceAddress, ShowsTheBytesInHexadecimal) {
  const Sink sink;
  const unsigned char bytes[] = {0x02, 0x00, 0x07, 0x7F, 0xAB};
  TRC1_PrintAddress(&ipcRead, 1, "label", bytes, 5);
  TRC1_PrintAddress(&ipcRead, 1, "label", bytes, 0);
  TRC1_PrintAddress(&ipcRead, 1, "label", nullptr, 16);
  EXPECT_THAT(sink.texts, ElementsAre("label: clientAddr <5<0200077fab>>\n",
                                      "label: clientAddr <0<>>\n", "label: clientAddr <16<>>\n"));
}

TEST(TraceAddress, ReadsNoFurtherThanAnAddressReaches) {
  const Sink sink;
  const std::string bytes(256, '\x11');  // as many as the server's queue keeps of one
  TRC1_PrintAddress(&ipcRead, 1, "label", bytes.data(), 1000000);
  EXPECT_EQ(sink.texts.at(0),
            "label: clientAddr <1000000<" + std::string(2 * bytes.size(), '1') + ">>\n");
}

}  // namespace
