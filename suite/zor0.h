// zor0.h: the suite's utility library, as far as the data channel needs it. A header for each idea;
// sources here include the ones that they need.
#ifndef SUITE_ZOR0_H
#define SUITE_ZOR0_H

#include "suite/descriptor_set.h"
#include "suite/dump.h"
#include "suite/fields.h"
#include "suite/names.h"
#include "suite/product_settings.h"
#include "suite/sockets.h"
#include "suite/text.h"
#include "suite/threads.h"

#endif  // SUITE_ZOR0_H
