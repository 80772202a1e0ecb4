#include "suite/interface_types.h"

const char* const ZORA_DPTypeNames[] = {"APIS", "APPC", "ASFS", "FILE", "HTTP", "JDBC",
                                        "ODBC", "POST", "SNMP", "SOCK", "WBEM", "NODP"};
