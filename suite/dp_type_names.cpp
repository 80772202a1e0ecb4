#include "zora/zora.h"

const char* const ZORA_DPTypeNames[ZORA_DP_TYPE_COUNT] = {
    "APIS", "APPC", "ASFS", "FILE", "HTTP", "JDBC", "ODBC", "POST", "SNMP", "SOCK", "WBEM", "NODP"};
