// A provider's rows: built attribute by attribute in the caller's work buffer, then stamped and
// sent.
#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "suite/dump.h"
#include "zordchcl/DCHclient.h"
#include "zordchcl/trace_unit.h"

namespace {

// The first bytes of a value as a number, whatever its size: nothing behind the value is looked at.
template <class Number>
int leadingNumber(const void* value, ZORA_Long valueSize) {
  Number number = 0;
  std::memcpy(&number, value, std::min(sizeof number, static_cast<std::size_t>(valueSize)));
  return static_cast<int>(number);
}

[[gnu::cold]] void traceAttributeValue(const TRC1_Scope& trc1Scope, const void* value,
                                       ZORA_Long valueSize, char attrType) {
  if (value == nullptr) return;  // a row takes it as no bytes; the trace must not look behind it
  switch (attrType) {
    case 'A':
    case 'C':
    case 'G':
    case 'L':
    case 'N':
      TRC1_DETAIL("attrValue : [%d]\n", valueSize == sizeof(short)
                                            ? leadingNumber<short>(value, valueSize)
                                            : leadingNumber<ZORA_Long>(value, valueSize));
      break;
    case 'D':
    case 'R':
    case 'T':
      TRC1_DETAIL("attrValue : [%.*s]\n", static_cast<int>(valueSize),
                  static_cast<const char*>(value));
      break;
    case 'I':
    case 'S':
      TRC1_DETAIL("attrValue : [%d]\n", leadingNumber<short>(value, valueSize));
      break;
    default:
      break;
  }
}

bool hasRoom(std::size_t used, const char* attrName, const void* attrValue, ZORA_Long valueSize) {
  return used <= DCH_WORK_BUFFER_SIZE &&
         suite::fieldSize(DCH_attrName, attrName, 0) +
                 suite::fieldSize(DCH_attrValue, attrValue, valueSize) <=
             DCH_WORK_BUFFER_SIZE - used;
}

void stamp(char* row, ZORA_Long handle, short dataCode) {
  const std::uint32_t handleOnWire = htonl(static_cast<std::uint32_t>(handle));
  const std::uint16_t codeOnWire = htons(static_cast<std::uint16_t>(dataCode));
  std::memcpy(row + DCH_DATA_HANDLE_OFFSET, &handleOnWire, sizeof handleOnWire);
  std::memcpy(row + DCH_DATA_CODE_OFFSET, &codeOnWire, sizeof codeOnWire);
}

}  // namespace

ZORA_Long DCHclient::dp_formatData(ZORA_Long* status, char** workBuffer, ZORA_Long* size,
                                   const char* attrName, const void* attrValue, ZORA_Long valueSize,
                                   char attrType) {
  TRC1_FUNCTION("DCHclient::dp_formatData");
  *status = 0;
  if (failed()) TRC1_RETURN(latch());
  TRC1_DETAIL("workBuffer: [%p]\n", TRC1_Pointer(*workBuffer));
  TRC1_DETAIL("size      : [%d]\n", *size);
  TRC1_DETAIL("attrType  : [%c]\n", attrType);
  TRC1_DETAIL("attrName  : [%s]\n", attrName);
  TRC1_DETAIL("valueSize : [%d]\n", valueSize);
  if (valueSize <= 0) TRC1_RETURN(latch());
  if (trc1Scope.on(TRC1_CLASS_DETAIL)) [[unlikely]]
    traceAttributeValue(trc1Scope, attrValue, valueSize, attrType);
  const bool isEmpty = *workBuffer == nullptr || *size == 0;
  const std::size_t used = isEmpty ? DCH_DATA_ATTRIBUTES_OFFSET : static_cast<std::size_t>(*size);
  if (!hasRoom(used, attrName, attrValue, valueSize)) {
    TRC1_ERROR("Error: attribute [%s] with %d bytes does not fit: %d of %d bytes are in use\n",
               attrName, valueSize, static_cast<int>(used), DCH_WORK_BUFFER_SIZE);
    fail(status, DCH_STATUS_NO_STORAGE);
    TRC1_RETURN(latch());
  }
  if (!prepareRow(trc1Scope, status, workBuffer, size)) TRC1_RETURN(latch());
  DCH_MessageBuilder row(*workBuffer, DCH_WORK_BUFFER_SIZE, isEmpty ? ZOR0_LENGTH_WORD_SIZE : used);
  if (isEmpty) {
    TRC1_DETAIL("Placing placeholders in buffer.\n");
    row.add(DCH_requestType, short{DCH_REQUEST_DATA})
        .add(DCH_handle, DCH_DATA_HANDLE_PLACEHOLDER)
        .add(DCH_dataCode, DCH_DATA_CODE_PLACEHOLDER);
  }
  row.add(DCH_attrName, attrName).addAttributeValue(attrValue, valueSize, attrType);
  *size = row.length();
  if (trc1Scope.on(TRC1_CLASS_DUMP)) {
    TRC1_LINE(TRC1_CLASS_DUMP, "DUMP[%d] of buffer.\n", *size);
    ZOR0_PrintDump(*workBuffer, 0, *size);
  }
  TRC1_RETURN(latch());
}

bool DCHclient::prepareRow(const TRC1_Scope& trc1Scope, ZORA_Long* status, char** workBuffer,
                           ZORA_Long* size) {
  if (*workBuffer != nullptr) {
    TRC1_DETAIL("Using workBuffer @%p\n", TRC1_Pointer(*workBuffer));
    return true;
  }
  *size = 0;
  *workBuffer = new (std::nothrow) char[DCH_WORK_BUFFER_SIZE];
  if (*workBuffer == nullptr) {
    TRC1_ERROR("Error: allocation for workBuffer failed.\n");
    fail(status, DCH_STATUS_NO_STORAGE);
    return false;
  }
  TRC1_STORAGE("Allocated *workBuffer @%p for length %d\n", TRC1_Pointer(*workBuffer),
               DCH_WORK_BUFFER_SIZE);
  std::memset(*workBuffer, 0, DCH_WORK_BUFFER_SIZE);
  return true;
}

ZORA_Long DCHclient::dp_data(ZORA_Long* status, ZORA_Long handle, short dataCode,
                             char** workBuffer) {
  TRC1_FUNCTION("DCHclient::dp_data");
  *status = 0;
  if (failed()) TRC1_RETURN(latch());
  if (*workBuffer != nullptr) {
    stamp(*workBuffer, handle, dataCode);
    // The length comes back from the caller: behind the buffer there is nothing to be sent.
    const std::uint32_t length = ZOR0_MessageLength(*workBuffer);
    if (!reportUnlessFits(trc1Scope, "dp_data", length <= DCH_WORK_BUFFER_SIZE) ||
        !writeOrReport(trc1Scope, "dp_data", *workBuffer, static_cast<ZORA_Long>(length)))
      *status = DCH_STATUS_MISSING_FIELD;
    TRC1_STORAGE("Deleting workBuffer @%p\n", TRC1_Pointer(*workBuffer));
    delete[] * workBuffer;
    *workBuffer = nullptr;
  } else {
    TRC1_ERROR("Error: freeing workBuffer storage.\n");
    fail(status, DCH_STATUS_NO_STORAGE);
  }
  if (!failed()) {
    TRC1_DETAIL("[@%p] Waiting for dp_data response, timeout: %d seconds\n",
                TRC1_Pointer(_ipcClient), _ipcReadTimeout);
    awaitStatus(trc1Scope, status, _ipcReadTimeout);
  }
  TRC1_RETURN(latch());
}
