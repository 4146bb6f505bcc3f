// Puts the one driver object back into its loaded state between tests and
// installs a ComInfo record with sensible defaults.
#ifndef RV_TEST_DRIVER_RESET_H
#define RV_TEST_DRIVER_RESET_H

#include "driver/driver_object.h"

// Single station 1, blockUnits 64, retryLimit 2, queue-mode writes, local
// link 0. Tests change fields of the returned record as they need.
ComInfo *resetDriver();

#endif
