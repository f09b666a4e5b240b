// The host property store: the device's rules for names and values, both
// profile formats, the files it refuses, and the persistence file alone, in
// the environment's files and shared between processes.
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "kovani_host_properties.h"
#include "support.h"

namespace {

using namespace kovani_test;

std::string g_reports;

void Collect(int kind, const char* file, unsigned long line, const char* reason, void*) {
  g_reports +=
      std::to_string(kind) + " " + file + ":" + std::to_string(line) + ": " + reason + "\n";
}

// Every property as "name=value" lines, with reports started afresh.
std::string All() {
  std::string all;
  kovani_host_property_foreach(
      [](const char* n, const char* v, void* out) {
        *static_cast<std::string*>(out) += std::string(n) + "=" + v + "\n";
      },
      &all);
  return all;
}

struct HostStore : ::testing::Test {
  void SetUp() override {
    kovani_host_property_reset();
    kovani_host_property_set_reporter(Collect, nullptr);
    g_reports.clear();
  }
  void TearDown() override { kovani_host_property_set_reporter(nullptr, nullptr); }
  TempDir dir;
};

TEST_F(HostStore, get_and_set_rules) {
  const std::string v91(91, 'v'), v92(92, 'v');
  // clang-format off
  const struct { const char* name; std::string value; int result; } sets[] = {
      {"a", "v", 0}, {"A-b_c@d:e.1", "v", 0}, {"", "v", -1}, {".a", "v", -1}, {"a.", "v", -1},
      {"a..b", "v", -1}, {"a b", "v", -1}, {"a=b", "v", -1}, {nullptr, "v", -1}, {"l", v91, 0},
      {"m", v92, -1}, {"ro.l", v92, 0}, {"ro.w", "1", 0}, {"ro.w", "2", -1}, {"ro.e", "", 0},
      {"ro.e", "x", -1}, {"n", "x", 0}, {"n", "", 0}, {"u", "\xc0\xaf", -1}, {"u", "\xe2\x82", -1},
      {"u", "\xc3\xa9", 0}};
  const struct { const char *name, *fallback, *value; } gets[] = {
      {"ro.l", "d", "Must use __system_property_read_callback() to read"}, {"n", "d", "d"},
      {"absent", nullptr, ""}};
  // clang-format on
  for (const auto& s : sets) EXPECT_EQ(s.result, property_set(s.name, s.value.c_str())) << s.name;
  EXPECT_EQ(0, property_set("ro.null", nullptr));
  for (const auto& g : gets) {
    char value[PROPERTY_VALUE_MAX];
    EXPECT_EQ(static_cast<int>(strlen(g.value)), property_get(g.name, value, g.fallback));
    EXPECT_STREQ(g.value, value);
  }
  char value[PROPERTY_VALUE_MAX];
  EXPECT_EQ(91, property_get("absent", value, std::string(200, 'd').c_str()));
  EXPECT_EQ("A-b_c@d:e.1=v\na=v\nl=" + v91 + "\nn=\nro.e=\nro.l=" + v92 +
                "\nro.null=\nro.w=1\nu=\xc3\xa9\n",
            All());
}

TEST_F(HostStore, profiles) {
  dir.Write(
      "p",
      "# comment\n\nro.a=one\r\n  vendor.sp  =  two words  \r\nvendor.d=1\nvendor.d=2\n"
      "[vendor.br]: [a]b] [c]\n[persist.h]: [reboot,1\r\nreboot,2]\r\nno equals\nbad..name=1\n"
      "[vendor.x] [v]\nvendor.l=" +
          std::string(92, 'x') + "\nvendor.u=\xff\nvendor.z=a" + std::string(1, '\0') +
          "b\n"
          "import /x\n[vendor.open]: [never closed\nvendor.lost=1\n");
  unsigned long bad = 0;
  EXPECT_EQ(6, kovani_host_property_load((dir / "p").c_str(), &bad));
  EXPECT_EQ(8u, bad);
  EXPECT_EQ(1, kovani_host_property_load_text("stdin", "ro.b=1\nbroken\n", 14, &bad));
  EXPECT_EQ(1u, bad);
  const std::string p = "1 " + dir / "p";
  EXPECT_EQ(p + ":10: missing '='\n" + p + ":11: invalid property name\n" + p +
                ":12: malformed getprop line, expected \"[name]: [value]\"\n" + p +
                ":13: value of 92 or more bytes for a non-ro. property\n" + p +
                ":14: value is not valid UTF-8\n" + p + ":15: contains a NUL byte\n" + p +
                ":16: import is not supported\n" + p +
                ":17: value never closed by ']'\n1 stdin:2: missing '='\n",
            g_reports);
  EXPECT_EQ(
      "persist.h=reboot,1\nreboot,2\nro.a=one\nro.b=1\nvendor.br=a]b] "
      "[c\nvendor.d=2\nvendor.sp=two words\n",
      All());
}

TEST_F(HostStore, refused_files) {
  dir.Write("foreign", "hello\nro.x=1\n");
  mkfifo((dir / "fifo").c_str(), 0600);
  dir.Write("big", "");
  std::filesystem::resize_file(dir / "big", KOVANI_HOST_PROPERTY_FILE_MAX + 1);
  EXPECT_EQ(-1, kovani_host_property_set_persist_file((dir / "foreign").c_str()));
  EXPECT_EQ(-1, kovani_host_property_load((dir / "fifo").c_str(), nullptr));
  EXPECT_EQ(-1, kovani_host_property_set_persist_file((dir / "fifo").c_str()));
  EXPECT_EQ(-1, kovani_host_property_load("/dev/zero", nullptr));
  EXPECT_EQ(-1, kovani_host_property_load((dir / "big").c_str(), nullptr));
  EXPECT_EQ("hello\nro.x=1\n", ReadFile(dir / "foreign"));
  EXPECT_EQ("3 " + dir / "foreign:0: does not look like a persistence file\n3 " +
                dir / "fifo:0: not a regular file\n3 " +
                dir / "fifo:0: not a regular file\n3 /dev/zero:0: not a regular file\n3 " +
                dir / "big:0: larger than 64 MiB\n",
            g_reports);
}

// Lines it cannot parse stay in place, the mode stays, a link is followed to
// the file it names and a link planted as a temporary is not.
TEST_F(HostStore, persistence_file) {
  dir.Write("s", "# mine\npersist.a=1\ngarbage\npersist.b=2\nro.x=1\r\npersist.c=a\\qb\n");
  chmod((dir / "s").c_str(), 0640);
  dir.Write("victim", "victim\n");
  std::filesystem::create_symlink("s", dir / "link");
  std::filesystem::create_symlink("victim", dir / "s.kovani-tmp.Ab12Cd");
  ASSERT_EQ(0, kovani_host_property_set_persist_file((dir / "link").c_str()));
  EXPECT_EQ(0, property_set("persist.a", "l1\nl2\\x\r"));
  EXPECT_EQ(0, property_set("persist.new", "n"));
  EXPECT_EQ(0, kovani_host_property_unset("persist.b"));
  EXPECT_EQ(0, kovani_host_property_seed("persist.s", "seeded"));
  const std::string kept =
      "# mine\npersist.a=l1\\nl2\\\\x\\r\ngarbage\nro.x=1\r\npersist.c=a\\qb\npersist.new=n\n";
  EXPECT_EQ(kept, ReadFile(dir / "s"));
  EXPECT_EQ("victim\n", ReadFile(dir / "victim"));
  EXPECT_FALSE(
      std::filesystem::exists(std::filesystem::symlink_status(dir / "s.kovani-tmp.Ab12Cd")));
  EXPECT_EQ(std::filesystem::perms(0640), std::filesystem::status(dir / "s").permissions());
  chmod((dir / "s").c_str(), 0444);
  EXPECT_EQ(0, property_set("persist.a", "2"));
  EXPECT_EQ(kept, ReadFile(dir / "s"));
  const std::string link = dir / "link:";
  EXPECT_EQ("2 " + link + "3: missing '='\n2 " + link + "5: not a persist. property\n2 " + link +
                "6: unknown escape\n4 " + link + "0: Permission denied\n",
            g_reports);
  kovani_host_property_reset();
  ASSERT_EQ(0, kovani_host_property_set_persist_file((dir / "link").c_str()));
  EXPECT_EQ("persist.a=l1\nl2\\x\r\npersist.new=n\n", All());
  ASSERT_EQ(0, kovani_host_property_set_persist_file((dir / "new").c_str()));
  EXPECT_EQ(0, kovani_host_property_unset("persist.a"));
  EXPECT_FALSE(std::filesystem::exists(dir / "new"));
}

// The environment names the files; the default reporter writes to stderr.
// Two writers share one file, one killed while it writes: neither loses the
// other's entry, the file is never torn, and a dead writer's temporary goes.
TEST_F(HostStore, environment_and_two_writers) {
  dir.Write("profile", "ro.a=profile\npersist.z=profile\nbroken\n");
  dir.Write("persist", "persist.z=persisted\nkept\n");
  const std::string child = Program(KOVANI_HOST_PROP_CHILD);
  ChildRun run = Shell("cd " + dir.path +
                       " && KOVANI_PROPERTY_PROFILE=profile KOVANI_PROPERTY_PERSIST=persist " +
                       child + " persist.z");
  EXPECT_EQ("persisted\n", run.out);
  EXPECT_EQ("profile:3: missing '=', line skipped\npersist:2: missing '=', line kept as it is\n",
            run.err);
  run = Shell("cd " + dir.path +
              " && KOVANI_PROPERTY_PROFILE=none KOVANI_PROPERTY_PERSIST=no/persist " + child +
              " persist.x 1");
  EXPECT_EQ(
      "none: No such file or directory\nno/persist: cannot write: No such file or directory\n",
      run.err);
  Shell("cd " + dir.path + " && umask 027 && export KOVANI_PROPERTY_PERSIST=shared; " + child +
        " persist.k 0 >k & " + child + " persist.a 200 >a; kill -9 $!; wait");
  const std::string k = ReadFile(dir / "k");
  const long acked = std::atol(k.substr(k.rfind('\n', k.size() - 2) + 1).c_str());
  dir.Write("shared.kovani-tmp.Zz9Zz9", "a dead writer's\n");
  ASSERT_EQ(0, kovani_host_property_set_persist_file((dir / "shared").c_str()));
  char stored[PROPERTY_VALUE_MAX];
  property_get("persist.k", stored, "");
  EXPECT_GE(std::atol(stored), acked);
  const std::string text = ReadFile(dir / "shared"),
                    header = "# persistent properties, rewritten on every change\n";
  const std::string a = "persist.a=200\n", k_line = "persist.k=" + std::string(stored) + "\n";
  EXPECT_TRUE(text == header + a + k_line || text == header + k_line + a) << text;
  EXPECT_EQ(std::filesystem::perms(0640), std::filesystem::status(dir / "shared").permissions());
  EXPECT_FALSE(std::filesystem::exists(dir / "shared.kovani-tmp.Zz9Zz9"));
}

}  // namespace
