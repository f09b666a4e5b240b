// The fixture every library suite shares.
#ifndef KOVANI_TEST_LIBRARY_TEST_H
#define KOVANI_TEST_LIBRARY_TEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "fresh_process.h"
#include "kovani_host_properties.h"
#include "kovani_utils.h"
#include "log_capture.h"

namespace kovani_test {

// For tests that seed or write the switch properties: on a device they would
// change the phone's own settings, and the store cannot be emptied there.
#ifdef __ANDROID__
#define KOVANI_TEST_NEEDS_HOST_STORE() GTEST_SKIP() << "needs the host property store"
#else
#define KOVANI_TEST_NEEDS_HOST_STORE() static_cast<void>(0)
#endif

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

// The sixteen build predicates in a fixed order.
inline bool (*const kBuildPredicates[])() = {
    kovani_is_factory_version, kovani_is_ct_cert_version, kovani_is_cm_cert_version,
    kovani_is_cu_cert_version, kovani_is_cert_version,    kovani_is_china_version,
    kovani_is_test_build,      kovani_is_pre_version,     kovani_is_dev_version,
    kovani_is_stable_version,  kovani_is_native_version,  kovani_is_factory_version_ex,
    kovani_is_root_version,    kovani_is_mp_version,      kovani_is_nuvo_version,
    kovani_is_user_version,
};

// A directory under /tmp, removed with everything in it.
class TempDir {
 public:
  TempDir() {
    char path[] = "/tmp/kovani_test_XXXXXX";
    if (mkdtemp(path) != nullptr) path_ = path;
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  std::string Path(const std::string& name) const { return path_ + "/" + name; }
  // Writes content to name (parent directories included); returns the path.
  std::string Write(const std::string& name, const std::string& content) const {
    const std::string path = Path(name);
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
    return path;
  }

 private:
  std::string path_;
};

}  // namespace kovani_test

#endif  // KOVANI_TEST_LIBRARY_TEST_H
