// Subnode names: SOURCE:KEYRR, with an optional _SUFFIX. When one would be too long it is the
// source name that is cut, always from its left end.
#include <cstdio>
#include <cstring>

#include "suite/text.h"
#include "zora/trace_unit.h"
#include "zora/zora.h"

namespace {

constexpr std::size_t maxSubnodeName = ZORA_MAX_SUBNODE_NAME;
constexpr std::size_t maxUntouchedName = ZORA_MAX_UNTOUCHED_NAME - 1;  // without the colon
constexpr std::size_t maxPartLength = 32;  // of a source name or an attribute group
constexpr std::size_t maxParsedName = ZORA_MAX_UNTOUCHED_NAME;
constexpr std::size_t keyLength = ZORA_APPL_KEY_LENGTH;
constexpr std::size_t suffixLength = 2;  // what RR counts as, whatever its length

char SourceName[maxPartLength + 1];

// A copy of the first characters of a text that fit, followed by zeros.
template <std::size_t size>
struct ZeroPaddedCopy {
  explicit ZeroPaddedCopy(const char* source) { std::memcpy(text, source, strnlen(source, size)); }
  char text[size + 1] = {};
};

}  // namespace

int ZORA_SetSubnodeName(const char* applName, const char* attrGroup, const char* srcName,
                        const char* RR, char* subnodeName, char* subnodeNameUntouched,
                        const char* subnodeSuffix) {
  TRC1_QUIET_FUNCTION("ZORA_SetSubnodeName");
  if (subnodeSuffix != nullptr)
    TRC1_DETAIL("applName<%s> srcName<%s> attrGroup<%s> RR<%s> subnodeSuffix<%s>\n", applName,
                srcName, attrGroup, RR, subnodeSuffix);
  else
    TRC1_DETAIL("applName<%s> srcName<%s> attrGroup<%s> RR<%s>\n", applName, srcName, attrGroup,
                RR);
  ZeroPaddedCopy<maxPartLength> source(srcName);
  const ZeroPaddedCopy<maxPartLength> group(attrGroup);
  const std::size_t sourceLength = std::strlen(source.text);
  const std::size_t applLength = std::strlen(applName);

  if (subnodeNameUntouched != nullptr) {
    const std::size_t groupLength = std::strlen(group.text);
    const std::size_t rrLength = std::strlen(RR);
    const std::size_t total = sourceLength + applLength + groupLength + rrLength + suffixLength;
    if (total > maxUntouchedName) {
      TRC1_ERROR("Error: Length ([%d] + [%d] +[%d] +[%d])\n", static_cast<int>(sourceLength),
                 static_cast<int>(applLength), static_cast<int>(groupLength),
                 static_cast<int>(rrLength));
      return 1;
    }
    std::sprintf(subnodeNameUntouched, "%s:%s%s%s", source.text, applName, group.text, RR);
  }

  // The colon, and the underscore before a suffix, count too.
  const std::size_t needed =
      subnodeSuffix != nullptr
          ? sourceLength + 1 + applLength + suffixLength + 1 + std::strlen(subnodeSuffix)
          : sourceLength + 1 + applLength + suffixLength;
  if (needed > maxSubnodeName) {
    const std::size_t excess = needed - maxSubnodeName;
    if (excess > sourceLength) {
      TRC1_ERROR("Error: no room for a source name in a subnode name with applName<%s>\n",
                 applName);
      return 1;
    }
    const int length = static_cast<int>(sourceLength);
    const int available = static_cast<int>(sourceLength - excess);
    TRC1_DETAIL("Truncating sourceName <%s> length: %d, available: %d\n", source.text, length,
                available);
    ZOR0_TruncateFromLeft(source.text, length, available);
    TRC1_DETAIL("sourceName truncated. New name <%s>\n", source.text);
  }
  if (subnodeSuffix != nullptr)
    std::sprintf(subnodeName, "%s:%s%s_%s", source.text, applName, RR, subnodeSuffix);
  else
    std::sprintf(subnodeName, "%s:%s%s", source.text, applName, RR);
  if (subnodeNameUntouched != nullptr)
    TRC1_DETAIL("subnodeName<%s> subnodeNameUntouched<%s>\n", subnodeName, subnodeNameUntouched);
  else
    TRC1_DETAIL("subnodeName<%s> subnodeNameUntouched[NULL]\n", subnodeName);
  return 0;
}

char* ZORA_GetSrcNameFromSubNodeName(const char* subnodeName) {
  TRC1_FUNCTION("ZORA_GetSrcNameFromSubNodeName");
  if (subnodeName == nullptr) {
    TRC1_ERROR("Error: subnodeName was NULL.\n");
    return nullptr;
  }
  ZeroPaddedCopy<maxParsedName> name(subnodeName);
  TRC1_FLOW("subnodeName<%s>\n", name.text);
  if (std::strchr(name.text, ':') == nullptr) {
    TRC1_ERROR("Error: could not determine sourceName from <%s>\n", subnodeName);
    return nullptr;
  }
  const char* const source = ZOR0_strtok(name.text, ":");
  if (source == nullptr) {
    TRC1_ERROR("Error: could not find ':' token in <%s>\n", subnodeName);
    return nullptr;
  }
  std::snprintf(SourceName, sizeof SourceName, "%s", source);
  TRC1_RETURN(SourceName);
}

int ZORA_GetApplKeyFromSubNodeName(const char* subnodeName, char* applKey) {
  TRC1_QUIET_FUNCTION("ZORA_GetApplKeyFromSubNodeName");
  if (subnodeName == nullptr || applKey == nullptr) {
    TRC1_ERROR("Error: subnodeName was NULL.\n");
    return 1;
  }
  TRC1_FLOW("subnodeName[%s]\n", subnodeName);
  // Followed by zeros, so that a key at the very end can be copied in full width.
  char name[maxSubnodeName + 1 + keyLength] = {};
  std::memcpy(name, subnodeName, strnlen(subnodeName, maxSubnodeName));
  if (std::strchr(name, ':') == nullptr) {
    TRC1_ERROR("Error: could not determine sourceName from[%s]\n", subnodeName);
    return 1;
  }
  const char* const source = ZOR0_strtok(name, ":");
  // A name of nothing but colons counts as having no key, and not as an error.
  if (source == nullptr) return 0;
  const char* const key = ZOR0_strtok(name + std::strlen(source) + 1, "\n");
  if (key == nullptr) {
    TRC1_ERROR("Error: parsing [%s]\n", subnodeName);
    return 1;
  }
  std::memcpy(applKey, key, keyLength);
  applKey[keyLength] = '\0';
  TRC1_FLOW("applKey[%s]\n", applKey);
  return 0;
}
