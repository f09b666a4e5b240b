// What every suite of the library includes.
#ifndef KOVANI_TEST_LIBRARY_TEST_H
#define KOVANI_TEST_LIBRARY_TEST_H

#include <cutils/properties.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "catalogue.h"
#include "fresh_process.h"
#include "kovani_host_properties.h"
#include "kovani_utils.h"
#include "log_capture.h"

namespace kovani_test {

// For tests that seed the switch properties: on a device they would change
// the phone's own settings, and the store cannot be emptied there.
#ifdef __ANDROID__
#define KOVANI_TEST_NEEDS_HOST_STORE() GTEST_SKIP() << "needs the host property store"
#else
#define KOVANI_TEST_NEEDS_HOST_STORE() static_cast<void>(0)
#endif

using Properties = std::vector<std::pair<const char*, const char*>>;

inline void Seed(const Properties& properties) {
  for (const auto& [name, value] : properties) kovani_host_property_seed(name, value);
}

// Read past the library, so that no trace line is logged.
inline std::string Stored(const char* name) {
  char value[PROPERTY_VALUE_MAX] = {0};
  property_get(name, value, "");
  return value;
}

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

  std::string Path(const std::string& name = "") const { return path_ + "/" + name; }
  // Writes content to name, parent folders included; returns the path.
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
