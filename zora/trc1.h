// trc1.h: the tracing facility's interface, for every folder above the base services.
#ifndef ZORA_TRC1_H
#define ZORA_TRC1_H

#include "suite/trc1.h"

#endif  // ZORA_TRC1_H
