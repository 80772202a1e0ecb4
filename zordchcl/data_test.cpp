// Rows, built attribute by attribute.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <cstring>
#include <memory>

#include "tests/support/fake_transport.h"
#include "tests/support/scripted_dch.h"
#include "tests/support/trace_capture.h"
#include "zordchcl/test_row.h"

namespace {

using testing::IsEmpty;

// Bytes in a block of exactly their number, so that a look behind them is a fault.
struct Value {
  explicit Value(const std::string& text)
      : bytes(std::make_unique<char[]>(text.size())), size(static_cast<ZORA_Long>(text.size())) {
    std::memcpy(bytes.get(), text.data(), text.size());
  }
  std::unique_ptr<char[]> bytes;
  ZORA_Long size;
};

const std::string headers =
    "0010 00000002 1030"
    "0080 00000004 00000000"
    "0070 00000002 0011";

// ---- Building --------------------------------------------------------------------------------

TEST(FormatData, TheFirstAttributeFollowsTheHeaderFields) {
  FakedClient faked;
  Row row;
  EXPECT_EQ(row.add(faked.client, "load1", "0.25", 4, 'D'), 0);
  EXPECT_EQ(row.status, 0);
  EXPECT_EQ(row.bytes(),
            bytesOf("00000035" + headers + "0050 00000006 'load1' 00 0051 00000005 'D0.25'"));
  EXPECT_EQ(row.size, static_cast<ZORA_Long>(ZOR0_MessageLength(row.buffer)));
  EXPECT_THAT(faked.transport.written, IsEmpty());
}

TEST(FormatData, TracesWhatItIsGivenInOrder) {
  expectTrace("DCHclient::dp_formatData", [] {
    FakedClient faked;
    Row row;
    row.add(faked.client, "load1", "0.25", 4, 'D');
    return Lines{
        entryLine(),
        detailLine("workBuffer: [(nil)]\n"),
        detailLine("size      : [0]\n"),
        detailLine("attrType  : [D]\n"),
        detailLine("attrName  : [load1]\n"),
        detailLine("valueSize : [4]\n"),
        detailLine("attrValue : [0.25]\n"),
        storageLine("Allocated *workBuffer @{address} for length 4096\n"),
        detailLine("Placing placeholders in buffer.\n"),
        dumpLine("DUMP[53] of buffer.\n"),
        exitLine(0),
    };
  });
}

TEST(FormatData, TracesALaterAttributeWithTheBufferThatIsThere) {
  expectTrace("DCHclient::dp_formatData", [] {
    FakedClient faked;
    Row row;
    row.add(faked.client, "load1", "0.25", 4, 'D');
    TraceCapture::forget();
    row.add(faked.client, "n", "\x05\x00", 2, 'N');
    return Lines{
        entryLine(),
        detailLine("workBuffer: [{address}]\n"),
        detailLine("size      : [53]\n"),
        detailLine("attrType  : [N]\n"),
        detailLine("attrName  : [n]\n"),
        detailLine("valueSize : [2]\n"),
        detailLine("attrValue : [5]\n"),
        detailLine("Using workBuffer @{address}\n"),
        dumpLine("DUMP[70] of buffer.\n"),
        exitLine(0),
    };
  });
}

TEST(FormatData, DumpsTheRowBehindItsHeading) {
  FakedClient faked;
  Row row;
  const TraceCapture trace("0x04");
  row.add(faked.client, "a", "v", 1, 'D');
  const std::vector<std::string> texts = trace.texts();
  ASSERT_EQ(texts.size(), 1u + (46 + 15) / 16);
  EXPECT_EQ(texts[0], "DUMP[46] of buffer.\n");
  EXPECT_EQ(texts[1],
            "0000  00 00 00 2e 00 10 00 00 00 02 10 30 00 80 00 00  |...........0....|\n");
}

TEST(FormatData, ANewRowSetsTheSizeItself) {
  FakedClient faked;
  Row row;
  row.size = 900;  // of the row before, whose buffer was sent
  EXPECT_EQ(row.add(faked.client, "a", "v", 1, 'D'), 0);
  EXPECT_EQ(row.size, 46);
}

TEST(FormatData, AFreshBufferIsZeroBehindTheRow) {
  mallopt(M_PERTURB, 0x5a);  // memory does not come zeroed by chance
  FakedClient faked;
  Row row;
  row.add(faked.client, "a", "v", 1, 'D');
  EXPECT_EQ(std::string(row.buffer + 46, DCH_WORK_BUFFER_SIZE - 46),
            std::string(DCH_WORK_BUFFER_SIZE - 46, '\0'));
}

TEST(FormatData, SizeZeroStartsAgainInTheSameBuffer) {
  FakedClient faked;
  Row row;
  row.add(faked.client, "first attribute", "12345678", 8, 'D');
  const char* const buffer = row.buffer;
  row.size = 0;
  expectTrace("DCHclient::dp_formatData", [&] {
    row.size = 0;
    row.add(faked.client, "a", "v", 1, 'T');
    return Lines{
        entryLine(),
        detailLine("workBuffer: [{address}]\n"),
        detailLine("size      : [0]\n"),
        detailLine("attrType  : [T]\n"),
        detailLine("attrName  : [a]\n"),
        detailLine("valueSize : [1]\n"),
        detailLine("attrValue : [v]\n"),
        detailLine("Using workBuffer @{address}\n"),
        detailLine("Placing placeholders in buffer.\n"),
        dumpLine("DUMP[46] of buffer.\n"),
        exitLine(0),
    };
  });
  EXPECT_EQ(row.buffer, buffer);
  EXPECT_EQ(row.bytes(), bytesOf("0000002e" + headers + "0050 00000002 'a' 00 0051 00000002 'Tv'"));
}

TEST(FormatData, AValueOfNoBytesDoesNothing) {
  for (const ZORA_Long valueSize : {0, -1, -2000000000}) {
    expectTrace("DCHclient::dp_formatData", [&] {
      FakedClient faked;
      Row row;
      row.size = 33;
      EXPECT_EQ(row.add(faked.client, "a", "v", valueSize, 'D'), 0);
      EXPECT_EQ(row.status, 0);
      EXPECT_EQ(row.buffer, nullptr);
      EXPECT_EQ(row.size, 33);
      return Lines{
          entryLine(),
          detailLine("workBuffer: [(nil)]\n"),
          detailLine("size      : [33]\n"),
          detailLine("attrType  : [D]\n"),
          detailLine("attrName  : [a]\n"),
          detailLine(textOf("valueSize : [%d]\n", static_cast<int>(valueSize))),
          exitLine(0),
      };
    });
  }
}

TEST(FormatData, AValueOfNoBytesLeavesABegunRowAlone) {
  FakedClient faked;
  Row row;
  row.add(faked.client, "a", "v", 1, 'D');
  const std::string before = row.bytes();
  EXPECT_EQ(row.add(faked.client, "b", "w", 0, 'D'), 0);
  EXPECT_EQ(row.bytes(), before);
}

TEST(FormatData, AnEmptyNameIsAnAttributeToo) {
  FakedClient faked;
  Row row;
  EXPECT_EQ(row.add(faked.client, "", "v", 1, 'D'), 0);
  EXPECT_EQ(row.bytes(), bytesOf("0000002d" + headers + "0050 00000001 00 0051 00000002 'Dv'"));
}

// ---- Values in the trace ---------------------------------------------------------------------

// The line that shows a value, "" when there is none.
std::string tracedValue(char type, const std::string& bytes) {
  FakedClient faked;
  Row row;
  const Value value(bytes);
  const TraceCapture trace("0x10");
  EXPECT_EQ(row.add(faked.client, "a", value.bytes.get(), value.size, type), 0);
  std::string found;
  for (const std::string& text : trace.textsOf("DCHclient::dp_formatData"))
    if (text.starts_with("attrValue")) found += text;
  // The letter never changes what travels.
  EXPECT_EQ(std::string(row.buffer + 30 + 8 + 6, bytes.size() + 1), type + bytes);
  return found;
}

template <class Number>
std::string asBytes(Number number) {
  return std::string(reinterpret_cast<const char*>(&number), sizeof number);
}

TEST(TracedValue, OfANumberLetterIsSixteenBitsWhenItHasTwoBytes) {
  for (const char type : {'A', 'C', 'G', 'L', 'N'}) {
    EXPECT_EQ(tracedValue(type, asBytes(std::int16_t{-2})), "attrValue : [-2]\n") << type;
    EXPECT_EQ(tracedValue(type, asBytes(std::int16_t{32767})), "attrValue : [32767]\n") << type;
  }
}

TEST(TracedValue, OfANumberLetterIsThirtyTwoBitsOtherwise) {
  for (const char type : {'A', 'C', 'G', 'L', 'N'}) {
    EXPECT_EQ(tracedValue(type, asBytes(std::int32_t{-70000})), "attrValue : [-70000]\n") << type;
    EXPECT_EQ(tracedValue(type, asBytes(std::int32_t{5}) + "more"), "attrValue : [5]\n") << type;
  }
}

TEST(TracedValue, OfAShortNumberIsReadFromItsOwnBytesAlone) {
  for (const char type : {'A', 'C', 'G', 'L', 'N'}) {
    EXPECT_EQ(tracedValue(type, bytesOf("07")), "attrValue : [7]\n") << type;
    EXPECT_EQ(tracedValue(type, bytesOf("010100")), "attrValue : [257]\n") << type;
  }
  for (const char type : {'I', 'S'})
    EXPECT_EQ(tracedValue(type, bytesOf("07")), "attrValue : [7]\n") << type;
}

TEST(TracedValue, OfASixteenBitLetterIsItsFirstTwoBytes) {
  for (const char type : {'I', 'S'}) {
    EXPECT_EQ(tracedValue(type, asBytes(std::int16_t{-2})), "attrValue : [-2]\n") << type;
    EXPECT_EQ(tracedValue(type, asBytes(std::int32_t{0x00010003})), "attrValue : [3]\n") << type;
    EXPECT_EQ(tracedValue(type, asBytes(std::int16_t{9}) + "x"), "attrValue : [9]\n") << type;
    EXPECT_EQ(tracedValue(type, asBytes(std::int16_t{9}) + "sixmor"), "attrValue : [9]\n") << type;
  }
}

TEST(TracedValue, OfATextLetterEndsWithItsBytesOrItsZero) {
  for (const char type : {'D', 'R', 'T'}) {
    EXPECT_EQ(tracedValue(type, "x"), "attrValue : [x]\n") << type;
    EXPECT_EQ(tracedValue(type, "unterminated"), "attrValue : [unterminated]\n") << type;
    EXPECT_EQ(tracedValue(type, std::string("cut\0off", 7)), "attrValue : [cut]\n") << type;
  }
}

TEST(TracedValue, OfAnotherLetterIsNotShown) {
  for (const char type : {'B', 'X', 'a', ' ', '\0'})
    EXPECT_EQ(tracedValue(type, "1234"), "") << type;
}

TEST(TracedValue, OfANullValueIsNotShownAndHasNoBytes) {
  for (const char type : {'N', 'D', 'I'}) {
    FakedClient faked;
    Row row;
    const TraceCapture trace("0xff");
    EXPECT_EQ(row.add(faked.client, "a", nullptr, 4, type), 0);
    EXPECT_EQ(row.size, 45);
  }
}

// ---- The room of a row -----------------------------------------------------------------------

constexpr ZORA_Long fullRowValueSize = DCH_WORK_BUFFER_SIZE - 30 - 8 - 7;  // name "a"

TEST(RowRoom, IsFilledToTheLastByte) {
  FakedClient faked;
  Row row;
  const std::string value(fullRowValueSize, 'v');
  EXPECT_EQ(row.add(faked.client, "a", value.data(), fullRowValueSize, 'D'), 0);
  EXPECT_EQ(row.size, DCH_WORK_BUFFER_SIZE);
  faked.transport.answers = {statusAnswer(0)};
  EXPECT_EQ(row.send(faked.client), 0);
  EXPECT_EQ(faked.transport.written.at(0).size(), std::size_t{DCH_WORK_BUFFER_SIZE});
}

TEST(RowRoom, AFirstAttributeThatDoesNotFitAllocatesNothing) {
  expectTrace("DCHclient::dp_formatData", [] {
    FakedClient faked;
    Row row;
    const std::string value(fullRowValueSize + 1, 'v');
    EXPECT_EQ(row.add(faked.client, "a", value.data(), fullRowValueSize + 1, 'X'), 1);
    EXPECT_EQ(row.status, 4);
    EXPECT_EQ(row.buffer, nullptr);
    EXPECT_EQ(row.size, 0);
    return Lines{
        entryLine(),
        detailLine("workBuffer: [(nil)]\n"),
        detailLine("size      : [0]\n"),
        detailLine("attrType  : [X]\n"),
        detailLine("attrName  : [a]\n"),
        detailLine(textOf("valueSize : [%d]\n", static_cast<int>(fullRowValueSize + 1))),
        errorLine(textOf("Error: attribute [a] with %d bytes does not fit: 30 of 4096 bytes are in "
                         "use\n",
                         static_cast<int>(fullRowValueSize + 1))),
        exitLine(1),
    };
  });
}

TEST(RowRoom, AnAttributeThatDoesNotFitLeavesTheRowAsItWas) {
  FakedClient readies;
  Row row;
  const std::string value(4000, 'v');
  row.add(readies.client, "a", value.data(), 4000, 'D');
  const std::string before(row.buffer, DCH_WORK_BUFFER_SIZE);
  for (const ZORA_Long valueSize : {37, 4000, 2147483647}) {
    FakedClient faked;
    ZORA_Long size = row.size;
    EXPECT_EQ(row.add(faked.client, "b", value.data(), valueSize, 'X'), 1) << valueSize;
    EXPECT_EQ(row.status, 4);
    EXPECT_EQ(row.size, size);
    EXPECT_EQ(std::string(row.buffer, DCH_WORK_BUFFER_SIZE), before);
  }
  EXPECT_EQ(row.add(readies.client, "b", value.data(), 36, 'D'), 0);
  EXPECT_EQ(row.size, DCH_WORK_BUFFER_SIZE);
}

TEST(RowRoom, ALongNameCounts) {
  FakedClient faked;
  Row row;
  EXPECT_EQ(row.add(faked.client, std::string(5000, 'n').c_str(), "v", 1, 'D'), 1);
  EXPECT_EQ(row.status, 4);
}

TEST(RowRoom, ASizeThatIsNoneIsRefused) {
  for (const ZORA_Long size : {-1, 4097, 2147483647}) {
    FakedClient faked;
    Row row;
    row.add(faked.client, "a", "v", 1, 'D');
    const std::string before(row.buffer, DCH_WORK_BUFFER_SIZE);
    row.size = size;
    EXPECT_EQ(row.add(faked.client, "b", "w", 1, 'D'), 1) << size;
    EXPECT_EQ(row.status, 4);
    EXPECT_EQ(row.size, size);
    EXPECT_EQ(std::string(row.buffer, DCH_WORK_BUFFER_SIZE), before);
  }
}

}  // namespace
