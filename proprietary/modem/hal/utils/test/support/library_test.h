// The fixture every library suite shares.
#ifndef KOVANI_TEST_LIBRARY_TEST_H
#define KOVANI_TEST_LIBRARY_TEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fresh_process.h"
#include "kovani_host_properties.h"
#include "kovani_utils.h"
#include "log_capture.h"

namespace kovani_test {

constexpr int kErr = 3;  // LOG_ERR
constexpr int kDbg = 7;  // LOG_DEBUG

// An empty property store and instance number 0, so that prefixes are fixed
// and no line rereads /proc; the library's globals are restored after.
class LibraryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    kovani_host_property_reset();
    g_kovani_qcril_ril_process_instance_id = 0;
  }
  void TearDown() override {
    g_kovani_qcril_ril_process_instance_id = 255;
    g_kovani_shell_print_flag = 1;
  }
};

}  // namespace kovani_test

#endif  // KOVANI_TEST_LIBRARY_TEST_H
