// The host property store across processes; data/host_store.txt holds the
// rest of its tests.
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <kovani_host_properties.h>
#include <signal.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "support.h"

namespace {

namespace fs = std::filesystem;
using namespace kovani_test;

const std::string kChild = KOVANI_HOST_PROP_CHILD;

// Options for a child that sees only the given property variables.
ChildOptions Env(const std::string& profile, const std::string& persist) {
  return {{"KOVANI_PROPERTY_PROFILE=" + profile, "KOVANI_PROPERTY_PERSIST=" + persist}, {}, {}, {}};
}

// Each test runs in a folder of its own, so that files have short relative
// names, which is how the default reports name them too.
struct HostProperties : ::testing::Test {
  void SetUp() override {
    kovani_host_property_reset();
    umask(027);  // known, for the mode of new files
    ASSERT_NE(nullptr, mkdtemp(dir_.data()));
    fs::current_path(dir_);
  }
  void TearDown() override {
    fs::current_path("/");
    fs::remove_all(dir_);
  }
  std::string dir_ = "/tmp/host_props.XXXXXX";
};

TEST_F(HostProperties, EnvironmentFilesAndDefaultReports) {
  std::ofstream("profile") << "ro.a=profile\npersist.z=profile\nbroken\n";
  std::ofstream("persist") << "persist.z=persisted\nkept\n";
  auto run = RunChild({kChild, "persist.z"}, Env("profile", "persist"));
  EXPECT_EQ("persisted\n", run.out);
  EXPECT_EQ("profile:3: missing '=', line skipped\npersist:2: missing '=', line kept as it is\n",
            run.err);
  run = RunChild({kChild, "persist.x", "1"}, Env("none", "no/persist"));
  EXPECT_EQ(
      "none: No such file or directory\nno/persist: cannot write: No such file or directory\n",
      run.err);
}

// Two writers share a new file; one is killed while writing. Neither loses
// the other's entry, the file is never torn, and the next attach removes
// what a dead writer left.
TEST_F(HostProperties, ConcurrentWritersKeepEachOthersKeysAndKillsTearNothing) {
  Child a({kChild, "persist.a", "200"}, Env("", "persist"));
  Child killed({kChild, "persist.k", "0"}, Env("", "persist"));
  EXPECT_EQ("", a.Wait().err);  // no change the file could not take
  kill(killed.pid, SIGKILL);
  ChildRun run = killed.Wait();
  ASSERT_EQ(128 + SIGKILL, run.status);
  run.out.erase(run.out.find_last_not_of('\n') + 1);  // its last line: the last value it stored
  const long acked = std::atol(run.out.c_str() + run.out.find_last_of('\n') + 1);
  // Deterministic, whether or not the kill left a temporary of its own.
  std::ofstream("persist.kovani-tmp.Zz9Zz9") << "a dead writer's\n";
  ASSERT_EQ(0, kovani_host_property_set_persist_file("persist"));
  char k[PROPERTY_VALUE_MAX];
  property_get("persist.k", k, "");
  EXPECT_GE(std::atol(k), acked);
  std::ifstream in("persist");
  const std::string text(std::istreambuf_iterator<char>(in), {}),
      one = "persist.a=200\n", other = "persist.k=" + std::string(k) + "\n";
  // Entries stand in the order of their first writes, which raced.
  const std::string header = "# persistent properties, rewritten on every change\n";
  EXPECT_TRUE(text == header + one + other || text == header + other + one) << text;
  EXPECT_EQ(fs::perms(0640), fs::status("persist").permissions());
  EXPECT_EQ(1, std::distance(fs::directory_iterator("."), fs::directory_iterator()));
}

}  // namespace
