// test_api.h: what the tests of the providers' exported functions share.
#ifndef ZORDCHCL_TEST_API_H
#define ZORDCHCL_TEST_API_H

#include <gtest/gtest.h>

#include "zordchcl/test_client.h"

constexpr char registration[] = "appl:HOSTMON,HMN;group:load;attr:load1,D,16;";

// The work buffer of a row with one attribute.
inline char* newRow() {
  ZORA_Long status = untouched;
  char* row = nullptr;
  ZORA_Long size = 0;
  EXPECT_EQ(dp_formatData(&status, &row, &size, "load1", "0.25", 4, 'D'), 0);
  EXPECT_EQ(status, 0);
  return row;
}

#endif  // ZORDCHCL_TEST_API_H
