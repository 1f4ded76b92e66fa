// "persist.wakeword.testmode" is read when the library loads. This binary runs with a property
// file (HOST_SYSTEM_PROPERTIES) that sets it, so the library must already be in test mode at
// main(), before anything in the test could set the property.
#include <gtest/gtest.h>

#include "WakeWordService.h"

TEST(TestModeAtLoad, PropertyWasReadBeforeMain) { EXPECT_TRUE(velmar::gTestMode); }
