#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <kovani_host_properties.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <tuple>

#include "child_process.h"

namespace {

namespace fs = std::filesystem;
using namespace kovani_test;

const std::string kLongText = "Must use __system_property_read_callback() to read";
const std::string kChild = KOVANI_HOST_PROP_CHILD;
const std::string kData = fs::path(__FILE__).parent_path() / "data/";

// Every report as "<kind> <file>:<line>: <reason>" lines.
std::string g_log;

void Record(int kind, const char* file, unsigned long line, const char* reason, void*) {
  g_log += std::to_string(kind) + ' ' + file + ':' + std::to_string(line) + ": " + reason + '\n';
}

std::string Get(const char* name, const char* def = "<def>") {
  char buf[PROPERTY_VALUE_MAX];  // exactly, so AddressSanitizer sees a write past it
  const int len = property_get(name, buf, def);
  EXPECT_EQ(static_cast<int>(std::strlen(buf)), len);
  return buf;
}

void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void Append(const char* name, const char* value, void* all) {
  *static_cast<std::string*>(all) += std::string(name) + "=" + value + "\n";
}

// Every property as "name=value" lines.
std::string All() {
  std::string all;
  kovani_host_property_foreach(Append, &all);
  return all;
}

// Options for a child that sees only the given property variables.
ChildOptions Env(const std::string& profile, const std::string& persist) {
  return {{"KOVANI_PROPERTY_PROFILE=" + profile, "KOVANI_PROPERTY_PERSIST=" + persist}, {}, {}, {}};
}

// Each test runs in a folder of its own, so files have short relative names,
// which is also how reports must name them.
struct HostProperties : ::testing::Test {
  void SetUp() override {
    kovani_host_property_reset();
    kovani_host_property_set_reporter(Record, nullptr);
    g_log.clear();
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

TEST_F(HostProperties, GetSetRules) {
  const std::string v91(91, 'v'), v92(92, 'v'), d200(200, 'd'), d = "<def>";
  // clang-format off
  const std::tuple<const char*, const char*, int, std::string> cases[] = {
      {"a", "v", 0, "v"},         {"A-b_c@d:e.1", "v", 0, "v"},  {"", "v", -1, d},
      {".a", "v", -1, d},         {"a.", "v", -1, d},            {"a..b", "v", -1, d},
      {"a b", "v", -1, d},        {"a=b", "v", -1, d},           {nullptr, "v", -1, d},
      {"l", v91.c_str(), 0, v91}, {"m", v92.c_str(), -1, d},     {"ro.l", v92.c_str(), 0, kLongText},
      {"ro.w", "1", 0, "1"},      {"ro.w", "2", -1, "1"},        {"n", "x", 0, "x"},
      {"n", nullptr, 0, d},       {"ro.e", nullptr, 0, d},       {"ro.e", "x", -1, d},
      {"u", "\xc0\xaf", -1, d},   {"u", "\xe2\x82", -1, d},      {"u", "\xc3\xa9", 0, "\xc3\xa9"},
  };
  // clang-format on
  for (const auto& [name, value, set, get] : cases) {
    SCOPED_TRACE(std::string(name ? name : "(null)") + " = " + (value ? value : "(null)"));
    EXPECT_EQ(set, property_set(name, value));
    EXPECT_EQ(get, Get(name));
  }
  EXPECT_EQ("", Get("n", nullptr));
  EXPECT_EQ(std::string(91, 'd'), Get("n", d200.c_str()));
}

// Both formats, a value over two lines, and bad lines (one holding a NUL).
TEST_F(HostProperties, LoadsBothProfileFormats) {
  fs::copy_file(kData + "host_profile.prop", "p");
  const std::string text = ReadFile("p");
  EXPECT_EQ(6, kovani_host_property_load_file("p"));
  EXPECT_EQ(ReadFile(kData + "host_profile.expected"), g_log + All());
  kovani_host_property_reset();
  g_log.clear();
  EXPECT_EQ(6, kovani_host_property_load_text("p", text.data(), text.size()));
  EXPECT_EQ(ReadFile(kData + "host_profile.expected"), g_log + All());
  EXPECT_EQ(7, kovani_host_property_load("p"));
}

TEST_F(HostProperties, RefusesWhatItMustNotRead) {
  WriteFile("foreign", "hello\nro.x=1\n");
  EXPECT_EQ(-1, kovani_host_property_set_persist_file("foreign"));
  EXPECT_EQ("3 foreign:0: does not look like a persistence file\n", g_log);
  EXPECT_EQ("hello\nro.x=1\n", ReadFile("foreign"));
  ASSERT_EQ(0, mkfifo("fifo", 0600));
  WriteFile("big", "");
  fs::resize_file("big", KOVANI_HOST_PROPERTY_FILE_MAX + 1);
  for (const std::string path : {"fifo", ".", "/dev/zero", "big"}) {
    g_log.clear();
    EXPECT_EQ(-1, kovani_host_property_load_file(path.c_str()));
    EXPECT_EQ(-1, kovani_host_property_set_persist_file(path.c_str()));
    const std::string line =
        "3 " + path + ":0: " + (path == "big" ? "larger than 64 MiB" : "not a regular file") + "\n";
    EXPECT_EQ(line + line, g_log);
  }
}

TEST_F(HostProperties, PersistFileKeepsItsLinesModeAndLink) {
  WriteFile("s", "# mine\npersist.a=1\ngarbage\npersist.b=2\nro.x=1\r\npersist.c=a\\qb\n");
  ASSERT_EQ(0, chmod("s", 0640));
  fs::create_symlink("s", "link");
  WriteFile("victim", "victim\n");
  // Links planted where temporaries go: at the old predictable name, which
  // must not be written through or touched, and as a dead writer's temporary
  // of the current form, which must be removed without following it.
  fs::create_symlink("victim", "s.tmp." + std::to_string(getpid()));
  fs::create_symlink("victim", "s.kovani-tmp.Ab12Cd");
  ASSERT_EQ(0, kovani_host_property_set_persist_file("link"));
  EXPECT_EQ(0, property_set("persist.a", "l1\nl2\\x\r"));
  EXPECT_EQ(0, property_set("persist.new", "n"));
  EXPECT_EQ(0, kovani_host_property_unset("persist.b"));
  EXPECT_EQ(0, kovani_host_property_seed("persist.s", "seeded"));
  const std::string kept =
      "# mine\npersist.a=l1\\nl2\\\\x\\r\ngarbage\nro.x=1\r\npersist.c=a\\qb\npersist.new=n\n";
  EXPECT_EQ(kept, ReadFile("s"));
  EXPECT_EQ(fs::perms(0640), fs::status("s").permissions());
  EXPECT_EQ("victim\n", ReadFile("victim"));
  EXPECT_EQ(4, std::distance(fs::directory_iterator("."), fs::directory_iterator()));
  ASSERT_EQ(0, chmod("s", 0444));
  EXPECT_EQ(0, property_set("persist.a", "2"));
  EXPECT_EQ("2", Get("persist.a"));
  EXPECT_EQ(kept, ReadFile("s"));
  EXPECT_EQ(
      "2 link:3: missing '='\n2 link:5: not a persist. property\n2 link:6: unknown escape\n"
      "4 link:0: Permission denied\n",
      g_log);
  kovani_host_property_reset();
  ASSERT_EQ(0, kovani_host_property_set_persist_file("link"));
  EXPECT_EQ("persist.a=l1\nl2\\x\r\npersist.new=n\n", All());
  // A change that leaves a new file empty leaves no file.
  ASSERT_EQ(0, kovani_host_property_set_persist_file("new"));
  EXPECT_EQ(0, kovani_host_property_unset("persist.a"));
  EXPECT_FALSE(fs::exists("new"));
}

TEST_F(HostProperties, EnvironmentFilesAndDefaultReports) {
  WriteFile("profile", "ro.a=profile\npersist.z=profile\nbroken\n");
  WriteFile("persist", "persist.z=persisted\nkept\n");
  auto run = RunChild({kChild, "persist.z"}, Env("profile", "persist"));
  EXPECT_EQ("persisted\n", run.out);
  EXPECT_EQ("profile:3: missing '=', line skipped\npersist:2: missing '=', line kept as it is\n",
            run.err);
  run = RunChild({kChild, "persist.x", "1"}, Env("none", "no/persist"));
  EXPECT_EQ(
      "none: No such file or directory\nno/persist: cannot write: No such file or directory\n",
      run.err);
}

// Two writers share a new file; one is killed while writing.
TEST_F(HostProperties, ConcurrentWritersKeepEachOthersKeysAndKillsTearNothing) {
  Child a({kChild, "persist.a", "200"}, Env("", "persist"));
  Child killed({kChild, "persist.k", "0"}, Env("", "persist"));
  long acked = 0;
  for (std::string l; acked < 200 && killed.ReadLine(&l);) acked = std::atol(l.c_str());
  EXPECT_EQ("", a.Wait().err);  // no change the file could not take
  kill(killed.pid(), SIGKILL);
  ASSERT_EQ(128 + SIGKILL, killed.Wait().status);
  // Deterministic, whether or not the kill left a temporary of its own.
  WriteFile("persist.kovani-tmp.Zz9Zz9", "a dead writer's\n");
  ASSERT_EQ(0, kovani_host_property_set_persist_file("persist"));
  const long k = std::atol(Get("persist.k").c_str());
  EXPECT_GE(k, acked);
  EXPECT_EQ("persist.a=200\npersist.k=" + std::to_string(k) + "\n", All());
  EXPECT_EQ(fs::perms(0640), fs::status("persist").permissions());
  EXPECT_EQ(1, std::distance(fs::directory_iterator("."), fs::directory_iterator()));
}

}  // namespace
