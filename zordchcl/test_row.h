// test_row.h: a provider's row in a test.
#ifndef ZORDCHCL_TEST_ROW_H
#define ZORDCHCL_TEST_ROW_H

#include <string>

#include "zordchcl/DCHclient.h"
#include "zordchcl/test_client.h"

// Its buffer is freed here when no request took it.
struct Row {
  ~Row() { delete[] buffer; }

  ZORA_Long add(DCHclient& client, const char* name, const void* value, ZORA_Long valueSize,
                char type) {
    return client.dp_formatData(&status, &buffer, &size, name, value, valueSize, type);
  }
  ZORA_Long send(DCHclient& client, ZORA_Long handle = 1, short dataCode = 2) {
    return client.dp_data(&status, handle, dataCode, &buffer);
  }
  std::string bytes() const { return std::string(buffer, static_cast<std::size_t>(size)); }

  ZORA_Long status = untouched;
  char* buffer = nullptr;
  ZORA_Long size = 0;
};

#endif  // ZORDCHCL_TEST_ROW_H
