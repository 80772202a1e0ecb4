#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "suite/fields.h"

namespace {

using Bytes = std::vector<unsigned char>;

// A message that is built field by field.
struct Message {
  char bytes[4096] = {};
  std::size_t used = ZOR0_LENGTH_WORD_SIZE;

  ZORA_Long add(short type, const void* value, ZORA_Long length = 0,
                const char* attrType = nullptr) {
    const ZORA_Long written =
        ZOR0_FormatDataField(bytes, bytes + used, type, value, length, attrType);
    used += static_cast<std::size_t>(written);
    return written;
  }
  void addHandle(ZORA_Long value) { add(DCH_handle, &value); }
  void addRequest(short value) { add(DCH_requestType, &value); }

  Bytes content() const { return Bytes(bytes, bytes + used); }
};

// What ZOR0_ExtractDataField hands out.
struct Field {
  short type;
  const char* value;
  ZORA_Long length;
  char attrType;
};

Field extract(ZOR0_FieldCursor* cursor) {
  Field field{-1, "untouched", -1, '-'};
  void* value = &field;
  field.type = ZOR0_ExtractDataField(cursor, &value, &field.length, &field.attrType);
  field.value = static_cast<const char*>(value);
  return field;
}

// A message as it came from a network, in memory of exactly its size, so that a sanitizer sees
// every step outside.
struct Received {
  explicit Received(const Bytes& content, std::size_t received)
      : memory(new char[received]), cursor((copy(content, received), memory.get()), received) {}
  explicit Received(const Bytes& content) : Received(content, content.size()) {}

  void copy(const Bytes& content, std::size_t received) {
    std::memcpy(memory.get(), content.data(), received);
  }

  std::unique_ptr<char[]> memory;
  ZOR0_FieldCursor cursor;
};

void appendNumber(Bytes* bytes, std::uint32_t value, int width) {
  for (int shift = (width - 1) * 8; shift >= 0; shift -= 8)
    bytes->push_back(static_cast<unsigned char>(value >> shift));
}

// A message with one field whose header says whatever it is told.
Bytes oneField(std::uint16_t type, std::uint32_t count, const std::string& value) {
  Bytes bytes;
  appendNumber(&bytes, static_cast<std::uint32_t>(10 + value.size()), 4);
  appendNumber(&bytes, type, 2);
  appendNumber(&bytes, count, 4);
  bytes.insert(bytes.end(), value.begin(), value.end());
  return bytes;
}

Bytes withLengthWord(Bytes bytes, std::uint32_t length) {
  const std::uint32_t word = htonl(length);
  std::memcpy(bytes.data(), &word, sizeof word);
  return bytes;
}

void expectMissing(const Bytes& content) {
  Received received(content);
  const Field field = extract(&received.cursor);
  EXPECT_EQ(field.type, 0);
  EXPECT_EQ(field.value, nullptr);
  EXPECT_EQ(field.length, 0);
  EXPECT_TRUE(received.cursor.atEnd());
  EXPECT_EQ(extract(&received.cursor).type, 0);
}

template <class Integer>
Integer valueAs(const Field& field) {
  Integer value;
  std::memcpy(&value, field.value, sizeof value);
  return value;
}

TEST(FormatField, LaysOutFixedWidthValuesInNetworkOrder) {
  Message message;
  const short code = 0x1015;
  const ZORA_Long handle = 0x01020304;
  EXPECT_EQ(message.add(DCH_requestType, &code), 8);
  EXPECT_EQ(message.add(DCH_handle, &handle), 10);
  EXPECT_EQ(message.content(), (Bytes{0, 0,    0, 22,                    //
                                      0, 0x10, 0, 0,  0, 2, 0x10, 0x15,  //
                                      0, 0x80, 0, 0,  0, 4, 1,    2,    3, 4}));
}

TEST(FormatField, TextCarriesItsZeroWhichCounts) {
  Message message;
  EXPECT_EQ(message.add(DCH_applName, "AB"), 9);
  EXPECT_EQ(message.content(), (Bytes{0, 0, 0, 13, 0, 0x20, 0, 0, 0, 3, 'A', 'B', 0}));
}

TEST(FormatField, NullTextIsEmptyText) {
  Message message;
  std::memset(message.bytes, 'x', sizeof message.bytes);
  EXPECT_EQ(message.add(DCH_applName, nullptr), 7);
  EXPECT_EQ(message.content(), (Bytes{0, 0, 0, 11, 0, 0x20, 0, 0, 0, 1, 0}));
}

TEST(FormatField, AttributeValueIsTheLetterAndTheBytesAsGiven) {
  Message message;
  const char letter = 'N';
  EXPECT_EQ(message.add(DCH_attrValue, "\x01\x00\xFF", 3, &letter), 10);
  EXPECT_EQ(message.content(), (Bytes{0, 0, 0, 14, 0, 0x51, 0, 0, 0, 4, 'N', 1, 0, 0xFF}));
}

TEST(FormatField, ResponseTakesAnExplicitLength) {
  Message message;
  EXPECT_EQ(message.add(DCH_response, "abc", 2), 8);
  EXPECT_EQ(message.add(DCH_response, "abc", -1), 6);
  EXPECT_EQ(message.content(),
            (Bytes{0, 0, 0, 18, 0, 0x12, 0, 0, 0, 2, 'a', 'b', 0, 0x12, 0, 0, 0, 0}));
}

TEST(FormatField, RefusesAnUnknownTypeAndWritesNothing) {
  Message message;
  message.addRequest(1);
  const Bytes before = message.content();
  EXPECT_EQ(message.add(99, "x"), 0);
  EXPECT_EQ(message.content(), before);
  EXPECT_EQ(ZOR0_FieldSize(99, "x", 1), 0u);
}

TEST(FormatField, LengthWordIsCurrentAfterEveryField) {
  Message message;
  message.addRequest(0x1030);
  EXPECT_EQ(ZOR0_MessageLength(message.bytes), 12u);
  message.addHandle(0);
  EXPECT_EQ(ZOR0_MessageLength(message.bytes), 22u);
  const short code = 17;
  message.add(DCH_dataCode, &code);
  EXPECT_EQ(ZOR0_MessageLength(message.bytes), 30u);
}

TEST(FormatField, DataMessagesHaveHandleAndDataCodeAtTheirPlaces) {
  Message message;
  message.addRequest(0x1030);
  message.addHandle(0x0A0B0C0D);
  const short code = 0x1122;
  message.add(DCH_dataCode, &code);
  EXPECT_EQ(std::memcmp(message.bytes + 18, "\x0A\x0B\x0C\x0D", 4), 0);
  EXPECT_EQ(std::memcmp(message.bytes + 28, "\x11\x22", 2), 0);
}

TEST(FieldSize, IsWhatFormattingWrites) {
  const short types[] = {DCH_requestType,
                         DCH_status,
                         DCH_response,
                         DCH_applName,
                         DCH_applKey,
                         DCH_sourceName,
                         DCH_attrGroup,
                         DCH_tableName,
                         DCH_attrName,
                         DCH_attrValue,
                         DCH_dataCode,
                         DCH_handle,
                         DCH_actionType,
                         DCH_actionName,
                         DCH_actionID,
                         DCH_actionParms,
                         DCH_actionOwner,
                         DCH_currentTime,
                         DCH_peltaObject,
                         0,
                         1};
  for (const short type : types) {
    Message message;
    const char letter = 'D';
    const auto written = static_cast<std::size_t>(message.add(type, "abcd", 3, &letter));
    EXPECT_EQ(ZOR0_FieldSize(type, "abcd", 3), written) << "type " << type;
  }
}

TEST(FieldLayout, WidthFollowsFromTheTypeCode) {
  for (const short type : std::initializer_list<short>{16, 112, 256})
    EXPECT_EQ(ZOR0_LayoutOfField(type), ZOR0_FieldLayout::fixed16) << type;
  for (const short type : std::initializer_list<short>{17, 128, 288, 352, 368})
    EXPECT_EQ(ZOR0_LayoutOfField(type), ZOR0_FieldLayout::fixed32) << type;
  for (const short type : std::initializer_list<short>{32, 33, 34, 35, 36, 80, 272, 304, 336})
    EXPECT_EQ(ZOR0_LayoutOfField(type), ZOR0_FieldLayout::text) << type;
  EXPECT_EQ(ZOR0_LayoutOfField(18), ZOR0_FieldLayout::bytes);
  EXPECT_EQ(ZOR0_LayoutOfField(81), ZOR0_FieldLayout::attributeValue);
  for (const short type : std::initializer_list<short>{0, 1, 19, 127, -1})
    EXPECT_EQ(ZOR0_LayoutOfField(type), ZOR0_FieldLayout::unknown) << type;
}

TEST(ExtractField, ReadsBackEveryKindOfField) {
  Message message;
  message.addRequest(0x2040);
  message.addHandle(-5);
  message.add(DCH_sourceName, "host:ABC00");
  const char letter = 'L';
  message.add(DCH_attrValue, "\x00\x01", 2, &letter);
  message.add(DCH_response, "answer", 6);

  Received received(message.content());
  const Field request = extract(&received.cursor);
  EXPECT_EQ(request.type, DCH_requestType);
  EXPECT_EQ(request.length, 2);
  EXPECT_EQ(valueAs<short>(request), 0x2040);

  const Field handle = extract(&received.cursor);
  EXPECT_EQ(handle.type, DCH_handle);
  EXPECT_EQ(handle.length, 4);
  EXPECT_EQ(valueAs<ZORA_Long>(handle), -5);

  const Field source = extract(&received.cursor);
  EXPECT_EQ(source.type, DCH_sourceName);
  EXPECT_EQ(source.length, 11);
  EXPECT_STREQ(source.value, "host:ABC00");

  const Field value = extract(&received.cursor);
  EXPECT_EQ(value.type, DCH_attrValue);
  EXPECT_EQ(value.attrType, 'L');
  EXPECT_EQ(std::string(value.value, 2), std::string("\x00\x01", 2));
  EXPECT_EQ(value.length, 2);

  const Field response = extract(&received.cursor);
  EXPECT_EQ(response.type, DCH_response);
  EXPECT_EQ(std::string(response.value, static_cast<std::size_t>(response.length)), "answer");
  EXPECT_TRUE(received.cursor.atEnd());
}

TEST(ExtractField, TheEndOfTheMessageIsTypeZero) {
  Received received(Bytes{0, 0, 0, 4});
  EXPECT_TRUE(received.cursor.atEnd());
  expectMissing(Bytes{0, 0, 0, 4});
}

TEST(ExtractField, TheLetterOfAnAttributeIsOptional) {
  Received received(oneField(DCH_attrValue, 2, "D7"));
  void* value = nullptr;
  ZORA_Long length = 0;
  EXPECT_EQ(ZOR0_ExtractDataField(&received.cursor, &value, &length, nullptr), DCH_attrValue);
  EXPECT_EQ(length, 1);
  EXPECT_EQ(*static_cast<char*>(value), '7');
}

TEST(ExtractField, EmptyValuesAreFields) {
  Received response(oneField(DCH_response, 0, ""));
  EXPECT_EQ(extract(&response.cursor).type, DCH_response);
  Received attribute(oneField(DCH_attrValue, 1, "D"));
  const Field field = extract(&attribute.cursor);
  EXPECT_EQ(field.type, DCH_attrValue);
  EXPECT_EQ(field.length, 0);
}

TEST(ExtractField, AnUnknownTypeThatFitsIsNamedAsFound) {
  Received received(oneField(999, 3, "abc"));
  const Field field = extract(&received.cursor);
  EXPECT_EQ(field.type, 999);
  EXPECT_EQ(field.length, 3);
  EXPECT_EQ(std::string(field.value, 3), "abc");
}

TEST(HostileField, CountPastTheEndIsMissing) {
  expectMissing(oneField(DCH_response, 4, "abc"));
  expectMissing(oneField(DCH_applName, 100, std::string("AB\0", 3)));
  expectMissing(oneField(999, 4, "abc"));
}

TEST(HostileField, HugeAndNegativeCountsAreMissing) {
  for (const std::uint32_t count : {0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu, 0xFFFFFFFAu})
    for (const std::uint16_t type : std::initializer_list<std::uint16_t>{18, 32, 81, 17, 999})
      expectMissing(oneField(type, count, "abcd"));
}

TEST(HostileField, AFixedWidthValueOfAnotherWidthIsMissing) {
  expectMissing(oneField(DCH_status, 2, "ab"));
  expectMissing(oneField(DCH_status, 3, "abc"));
  expectMissing(oneField(DCH_status, 0, ""));
  expectMissing(oneField(DCH_status, 5, "abcde"));
  expectMissing(oneField(DCH_requestType, 4, "abcd"));
  expectMissing(oneField(DCH_requestType, 1, "a"));
}

TEST(HostileField, ATextWithoutItsZeroIsMissing) {
  expectMissing(oneField(DCH_applName, 3, "abc"));
  expectMissing(oneField(DCH_applName, 0, ""));
  // A zero that belongs to the next field does not end this one.
  expectMissing(oneField(DCH_applName, 3, std::string("abc\0", 4)));
}

TEST(HostileField, AnAttributeValueWithoutALetterIsMissing) {
  expectMissing(oneField(DCH_attrValue, 0, ""));
}

TEST(HostileField, ATextMayEndBeforeItsBytesDo) {
  Received received(oneField(DCH_applName, 5, std::string("ab\0cd", 5)));
  const Field field = extract(&received.cursor);
  EXPECT_EQ(field.type, DCH_applName);
  EXPECT_STREQ(field.value, "ab");
  EXPECT_EQ(field.length, 5);
}

TEST(HostileField, NothingFollowsABadField) {
  Message message;
  message.addHandle(1);
  message.addHandle(2);
  Bytes content = message.content();
  content[9] = 3;  // the first field's count
  expectMissing(content);
}

TEST(HostileMessage, LengthWordsBelowFourGiveNoField) {
  const Bytes content = oneField(DCH_status, 4, "abcd");
  for (const std::uint32_t length : {0u, 1u, 2u, 3u})
    expectMissing(withLengthWord(content, length));
}

TEST(HostileMessage, ALengthWordTooSmallHidesWhatIsBeyond) {
  const Bytes content = oneField(DCH_status, 4, "abcd");
  for (std::uint32_t length = 4; length < content.size(); ++length)
    expectMissing(withLengthWord(content, length));
}

TEST(HostileMessage, ALengthWordTooLargeGoesNoFurtherThanWhatWasReceived) {
  for (const std::uint32_t length : {15u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
    Received received(withLengthWord(oneField(DCH_status, 4, "abcd"), length));
    EXPECT_EQ(extract(&received.cursor).type, DCH_status);
    EXPECT_EQ(extract(&received.cursor).type, 0);
  }
}

TEST(HostileMessage, EveryTruncationIsSafe) {
  Message message;
  message.addRequest(0x1015);
  message.add(DCH_applName, "HOSTMON");
  const char letter = 'D';
  message.add(DCH_attrValue, "abc", 3, &letter);
  const Bytes content = message.content();
  const std::size_t ends[] = {12, 26, 36};  // where the fields end
  for (std::size_t size = 0; size <= content.size(); ++size) {
    Received received(content, size);
    std::size_t fields = 0;
    while (extract(&received.cursor).type != 0) ++fields;
    std::size_t whole = 0;
    for (const std::size_t end : ends) whole += end <= size ? 1 : 0;
    EXPECT_EQ(fields, whole) << "received " << size;
  }
}

TEST(HostileMessage, NullHasNoField) {
  ZOR0_FieldCursor cursor(nullptr, 100);
  EXPECT_TRUE(cursor.atEnd());
  EXPECT_EQ(extract(&cursor).type, 0);
}

}  // namespace
