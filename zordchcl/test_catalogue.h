// test_catalogue.h: the three catalogue queries, for tests that go over all of them.
#ifndef ZORDCHCL_TEST_CATALOGUE_H
#define ZORDCHCL_TEST_CATALOGUE_H

#include <string>

#include "tests/support/bytes.h"
#include "tests/support/scripted_dch.h"
#include "zordchcl/DCHclient.h"
#include "zordchcl/test_lines.h"

// What differs from query to query.
struct Query {
  std::string name;
  int (*call)(ZORA_Long*, char**, const char*, short);
  ZORA_Long (DCHclient::*ask)(char**, const char*, ZORA_Long);
  const char* code;  // in hexadecimal
  bool showsItsArguments;
  Lines getting;
  std::string allocated;
  const char* answerFormat;

  std::string function() const { return "DCHclient::" + name; }

  // The trace of a query up to the end of its read.
  Lines asked(const std::string& applName, int length, ZORA_Long wait) const {
    return unwritten(applName, length, wait) + Lines{waitingLine(name)};
  }
  Lines unwritten(const std::string& applName, int length, ZORA_Long wait) const {
    Lines lines = {entryLine()};
    if (showsItsArguments)
      lines.push_back(
          detailLine(textOf("applName <%s> wait=%d\n", applName.c_str(), static_cast<int>(wait))));
    return lines + writingLines(name, length);
  }
};

inline const Query applications = {"dc_getApplications",
                                   dc_getApplications,
                                   &DCHclient::dc_getApplications,
                                   "2040",
                                   false,
                                   {detailLine("Getting Application info.\n")},
                                   "Allocated applInfo buffer @{address}\n",
                                   "Appl Info [%d][%s]\n"};
inline const Query attributes = {"dc_getApplAttributes",
                                 dc_getApplAttributes,
                                 &DCHclient::dc_getApplAttributes,
                                 "2050",
                                 true,
                                 {detailLine("Getting Attribute characteristics.\n")},
                                 "Allocated attrInfo buffer @{address}\n",
                                 "Attr Info [%d][%s]\n"};
inline const Query help = {"dc_getApplHelp",
                           dc_getApplHelp,
                           &DCHclient::dc_getApplHelp,
                           "2045",
                           true,
                           {},
                           "Allocated helpInfo buffer @{address}\n",
                           "[%d] helpText[%s]\n"};
inline const Query queries[] = {applications, attributes, help};

// The request for the application "HOSTMON", and its length.
constexpr int requestLength = 4 + 8 + 6 + 8;

inline std::string requestFor(const Query& query) {
  return bytesOf(std::string("0000001a 0010 00000002 ") + query.code +
                 "0020 00000008 'HOSTMON' 00");
}

inline std::string answerOf(const std::string& text) {
  return messageOf([&](DCH_MessageBuilder& message) {
    message.addBytes(DCH_response, text.data(), static_cast<ZORA_Long>(text.size()));
  });
}

#endif  // ZORDCHCL_TEST_CATALOGUE_H
