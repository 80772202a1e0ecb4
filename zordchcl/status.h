// status.h: the one table of status values. Everything that prints a status takes its text from
// here.
#ifndef ZORDCHCL_STATUS_H
#define ZORDCHCL_STATUS_H

#include "zora/zora.h"

// Values 1 to 5 arise in the client; those from 100 on are the DCH's own.
enum DCH_Status : ZORA_Long {
  DCH_STATUS_OK = 0,
  DCH_STATUS_BAD_ARGUMENT = 1,
  DCH_STATUS_MISSING_FIELD = 2,
  DCH_STATUS_NULL_ARGUMENT = 3,
  DCH_STATUS_NO_STORAGE = 4,
  DCH_STATUS_NO_ANSWER = 5,
  DCH_STATUS_MALFORMED = 100,
  DCH_STATUS_UNKNOWN_APPLICATION = 101,
  DCH_STATUS_UNKNOWN_GROUP = 102,
  DCH_STATUS_UNKNOWN_ATTRIBUTE = 103,
  DCH_STATUS_UNKNOWN_HANDLE = 104,
  DCH_STATUS_NOT_STORED = 105,
  DCH_STATUS_UNKNOWN_ACTION = 106,
};

struct DCH_StatusEntry {
  ZORA_Long number;
  const char* text;
};

inline constexpr DCH_StatusEntry DCH_statusTable[] = {
    {DCH_STATUS_OK, "done"},
    {DCH_STATUS_BAD_ARGUMENT, "bad argument, or no status in the answer"},
    {DCH_STATUS_MISSING_FIELD, "not sent whole, or a field missing in the answer"},
    {DCH_STATUS_NULL_ARGUMENT, "a required text is null"},
    {DCH_STATUS_NO_STORAGE, "no memory, or no work buffer"},
    {DCH_STATUS_NO_ANSWER, "no answer from the DCH"},
    {DCH_STATUS_MALFORMED, "malformed message"},
    {DCH_STATUS_UNKNOWN_APPLICATION, "unknown application"},
    {DCH_STATUS_UNKNOWN_GROUP, "unknown attribute group"},
    {DCH_STATUS_UNKNOWN_ATTRIBUTE, "unknown attribute"},
    {DCH_STATUS_UNKNOWN_HANDLE, "unknown handle"},
    {DCH_STATUS_NOT_STORED, "not stored"},
    {DCH_STATUS_UNKNOWN_ACTION, "unknown action"},
};

// The text of a status; a value that no table row has is "unknown status".
constexpr const char* DCH_statusText(ZORA_Long status) {
  for (const DCH_StatusEntry& entry : DCH_statusTable)
    if (entry.number == status) return entry.text;
  return "unknown status";
}

#endif  // ZORDCHCL_STATUS_H
