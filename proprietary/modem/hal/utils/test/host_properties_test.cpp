// Two processes writing one persistence file; data/host_store.txt holds the
// rest of the host property store's tests.
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

// Two writers share a new file; one is killed while writing. Neither loses
// the other's entry, the file is never torn, and the next attach removes
// what a dead writer left.
TEST(HostProperties, ConcurrentWritersKeepEachOthersKeysAndKillsTearNothing) {
  char dir[] = "/tmp/host_props.XXXXXX";
  ASSERT_NE(nullptr, mkdtemp(dir));
  fs::current_path(dir);
  umask(027);  // known, for the mode of the new file
  const ChildOptions options = {
      {"KOVANI_PROPERTY_PROFILE", "KOVANI_PROPERTY_PERSIST=persist"}, {}, {}, {}};
  Child a({KOVANI_HOST_PROP_CHILD, "persist.a", "200"}, options);
  Child killed({KOVANI_HOST_PROP_CHILD, "persist.k", "0"}, options);
  EXPECT_EQ("", a.Wait().err);  // no change the file could not take
  kill(killed.pid, SIGKILL);
  ChildRun run = killed.Wait();
  ASSERT_EQ(128 + SIGKILL, run.status);
  run.out.erase(run.out.find_last_not_of('\n') + 1);  // its last line: the last value it stored
  const long acked = std::atol(run.out.c_str() + run.out.find_last_of('\n') + 1);
  // Deterministic, whether or not the kill left a temporary of its own.
  std::ofstream("persist.kovani-tmp.Zz9Zz9") << "a dead writer's\n";
  kovani_host_property_reset();
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
  fs::current_path("/");
  fs::remove_all(dir);
}

}  // namespace
