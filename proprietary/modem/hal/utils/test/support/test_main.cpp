#include <gtest/gtest.h>

#include "kovani_host_properties.h"

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  // Tests seed their own properties; a profile from the environment would
  // leak into them.
  kovani_host_property_reset();
  return RUN_ALL_TESTS();
}
