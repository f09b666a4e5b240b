#include <gtest/gtest.h>

#include "kovani_host_properties.h"

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  // Re-executing the binary gives each fresh-process case a newly loaded
  // library, not a fork of the state the parent has built up.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  // Tests seed their own properties; a profile from the environment would
  // leak into them.
  kovani_host_property_reset();
  return RUN_ALL_TESTS();
}
