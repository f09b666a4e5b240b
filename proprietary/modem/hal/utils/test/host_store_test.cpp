// The host property store: the device's rules for names and values, both
// profile formats, the files it refuses, and the persistence file alone, in
// the environment's files and shared between processes.
#include <cutils/properties.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
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
      "\xEF\xBB\xBF# comment\n\nro.a=one\r\n  vendor.sp  =  two words  \r\nvendor.d=1\nvendor.d=2\n"
      "[vendor.br]: [a]b] [c]\n[persist.h]: [reboot,1\r\nreboot,2]\r\nno equals\nbad..name=1\n"
      "[vendor.x] [v]\nvendor.l=" +
          std::string(92, 'x') + "\nvendor.u=\xff\nvendor.z=a" + std::string(1, '\0') +
          "b\n"
          "import /x\n[vendor.open]: [never closed\n[vendor.next]: [n]\nvendor.lost=1\n"
          "[vendor.end]: [x\nvendor.after=1\n");
  unsigned long bad = 0;
  EXPECT_EQ(9, kovani_host_property_load((dir / "p").c_str(), &bad));
  EXPECT_EQ(9u, bad);
  EXPECT_EQ(1, kovani_host_property_load_text("stdin", "ro.b=1\nbroken\n", 14, &bad));
  EXPECT_EQ(1u, bad);
  const std::string p = "1 " + dir / "p";
  EXPECT_EQ(p + ":10: missing '='\n" + p + ":11: invalid property name\n" + p +
                ":12: malformed getprop line, expected \"[name]: [value]\"\n" + p +
                ":13: value of 92 or more bytes for a non-ro. property\n" + p +
                ":14: value is not valid UTF-8\n" + p + ":15: contains a NUL byte\n" + p +
                ":16: import is not supported\n" + p + ":17: value never closed by ']'\n" + p +
                ":20: value never closed by ']'\n1 stdin:2: missing '='\n",
            g_reports);
  EXPECT_EQ(
      "persist.h=reboot,1\nreboot,2\nro.a=one\nro.b=1\nvendor.after=1\nvendor.br=a]b] "
      "[c\nvendor.d=2\nvendor.lost=1\nvendor.next=n\nvendor.sp=two words\n",
      All());
  // Bad lines cost no memory each: counted, and only the first 100 reported.
  std::string lines;
  for (int i = 0; i < 100000; ++i) lines += "x\n";
  g_reports.clear();
  EXPECT_EQ(0, kovani_host_property_load_text("x", lines.data(), lines.size(), &bad));
  EXPECT_EQ(100000u, bad);
  EXPECT_EQ(KOVANI_HOST_PROPERTY_REPORTED_LINES_MAX,
            std::count(g_reports.begin(), g_reports.end(), '\n'));
}

TEST_F(HostStore, refused_files) {
  dir.Write("foreign", "hello\nro.x=1\n");
  mkfifo((dir / "fifo").c_str(), 0600);
  dir.Write("big", "");
  std::filesystem::resize_file(dir / "big", KOVANI_HOST_PROPERTY_FILE_MAX + 1);
  std::filesystem::create_symlink(dir / "missing", dir / "dangling");
  dir.Write("linked", "persist.a=1\n");
  std::filesystem::create_hard_link(dir / "linked", dir / "second");
  EXPECT_EQ(-1, kovani_host_property_set_persist_file((dir / "foreign").c_str()));
  EXPECT_EQ(-1, kovani_host_property_load((dir / "fifo").c_str(), nullptr));
  EXPECT_EQ(-1, kovani_host_property_set_persist_file((dir / "fifo").c_str()));
  EXPECT_EQ(-1, kovani_host_property_load("/dev/zero", nullptr));
  EXPECT_EQ(-1, kovani_host_property_load((dir / "big").c_str(), nullptr));
  EXPECT_EQ(-1, kovani_host_property_set_persist_file((dir / "dangling").c_str()));
  EXPECT_EQ(-1, kovani_host_property_set_persist_file((dir / "linked").c_str()));
  EXPECT_EQ("hello\nro.x=1\n", ReadFile(dir / "foreign"));
  EXPECT_FALSE(std::filesystem::exists(dir / "missing"));
  EXPECT_EQ("3 " + dir / "foreign:0: does not look like a persistence file\n3 " +
                dir / "fifo:0: not a regular file\n3 " +
                dir / "fifo:0: not a regular file\n3 /dev/zero:0: not a regular file\n3 " +
                dir / "big:0: larger than 64 MiB\n3 " + dir / "dangling:0: refusing to create " +
                dir / "missing through the symbolic link " + dir / "dangling\n3 " +
                dir / "linked:0: has 2 hard links, which a rewrite would split\n",
            g_reports);
}

// Lines it cannot parse stay in place, the mode stays, a link is followed to
// the file it names and one planted under a temporary's name is left alone.
TEST_F(HostStore, persistence_file) {
  dir.Write("s",
            "\xEF\xBB\xBF# mine\npersist.a=1\ngarbage\npersist.b=2\nro.x=1\r\npersist.c=a\\qb\n");
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
      "\xEF\xBB\xBF# "
      "mine\npersist.a=l1\\nl2\\\\x\\r\ngarbage\nro.x=1\r\npersist.c=a\\qb\npersist.new=n\n";
  EXPECT_EQ(kept, ReadFile(dir / "s"));
  EXPECT_EQ("victim\n", ReadFile(dir / "victim"));
  EXPECT_TRUE(std::filesystem::is_symlink(dir / "s.kovani-tmp.Ab12Cd"));
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
// other's entry, the file is never torn, and a dead writer's temporary goes
// (named after the file's hash, a pid above pid_max and a start time) while
// a user's file of the old temporaries' shape stays.
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
  dir.Write("shared.kovani-tmp.Zz9Zz9", "a user's\n");
  dir.Write("shared.kovani-tmp.080a026ee7d87df4.4194305.1.Zz9Zz9", "a dead writer's\n");
  ASSERT_EQ(0, kovani_host_property_set_persist_file((dir / "shared").c_str()));
  char stored[PROPERTY_VALUE_MAX];
  property_get("persist.k", stored, "");
  EXPECT_GE(std::atol(stored), acked);
  const std::string text = ReadFile(dir / "shared"),
                    header = "# persistent properties, rewritten on every change\n";
  const std::string a = "persist.a=200\n", k_line = "persist.k=" + std::string(stored) + "\n";
  EXPECT_TRUE(text == header + a + k_line || text == header + k_line + a) << text;
  EXPECT_EQ(std::filesystem::perms(0640), std::filesystem::status(dir / "shared").permissions());
  EXPECT_TRUE(std::filesystem::exists(dir / "shared.kovani-tmp.Zz9Zz9"));
  EXPECT_FALSE(
      std::filesystem::exists(dir / "shared.kovani-tmp.080a026ee7d87df4.4194305.1.Zz9Zz9"));
}

// Two long names alike in their first 200 bytes, three writers each: none
// takes the other file's live temporaries for a dead writer's.
TEST_F(HostStore, long_names_keep_their_temporaries) {
  const std::string name = dir / std::string(200, 'n'), child = Program(KOVANI_HOST_PROP_CHILD);
  const ChildRun run = Shell("for f in " + name + "1 " + name + "2; do for k in a b c; do " +
                             "KOVANI_PROPERTY_PERSIST=$f " + child +
                             " persist.$k 30 >/dev/null & " + "done; done; wait");
  EXPECT_EQ("", run.err);
  for (const char* last : {"1", "2"}) {
    ASSERT_EQ(0, kovani_host_property_set_persist_file((name + last).c_str()));
    EXPECT_EQ("persist.a=30\npersist.b=30\npersist.c=30\n", All());
  }
}

// Another user's link in a sticky world-writable folder is not followed,
// whatever fs.protected_symlinks says.
TEST_F(HostStore, foreign_link_in_a_shared_folder) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to give a link to another user";
  const std::string shared = dir / "tmp/", link = shared + "pl";
  mkdir(shared.c_str(), 0700);
  chmod(shared.c_str(), 01777);
  dir.Write("cfg", "persist.a=1\n");
  std::filesystem::create_symlink(dir / "cfg", link);
  ASSERT_EQ(0, lchown(link.c_str(), 65534, 65534));
  EXPECT_EQ(-1, kovani_host_property_set_persist_file(link.c_str()));
  EXPECT_EQ("3 " + link + ":0: refusing to follow the symbolic link " + link +
                ", which another user owns in a sticky world-writable folder\n",
            g_reports);
}

// A rewrite keeps the extended attributes, the ACL among them, whose mask
// stays a mask: 644 with an ACL does not turn into 664 without one.
TEST_F(HostStore, persistence_file_keeps_attributes) {
  const std::string x = dir / "x";
  dir.Write("x", "persist.a=1\n");
  // user::rw- user:65534:rw- group::r-- mask::rw- other::r--
  const uint32_t acl[] = {2,          0x60001, 0xffffffff, 0x60002, 65534,     0x40004,
                          0xffffffff, 0x60010, 0xffffffff, 0x40020, 0xffffffff};
  if (setxattr(x.c_str(), "user.note", "kept", 4, 0) != 0 ||
      setxattr(x.c_str(), "system.posix_acl_access", acl, sizeof acl, 0) != 0) {
    GTEST_SKIP() << "no extended attributes or ACLs on " << dir.path;
  }
  ASSERT_EQ(0, kovani_host_property_set_persist_file(x.c_str()));
  EXPECT_EQ(0, property_set("persist.a", "2"));
  EXPECT_EQ("persist.a=2\n", ReadFile(x));
  char note[8] = {};
  uint32_t kept[16] = {};
  EXPECT_EQ(4, getxattr(x.c_str(), "user.note", note, sizeof note));
  EXPECT_EQ(static_cast<ssize_t>(sizeof acl),
            getxattr(x.c_str(), "system.posix_acl_access", kept, sizeof kept));
  EXPECT_TRUE(std::equal(std::begin(acl), std::end(acl), kept));
}

// Another process's lock is waited for up to the limit, with a notice after
// a second; then the attach or the change fails, naming the file.
TEST_F(HostStore, lock_wait_is_bounded) {
  const std::string f = dir / "f";
  dir.Write("f", "persist.a=1\n");
  ASSERT_EQ(0, kovani_host_property_set_persist_file(f.c_str()));
  const int holder = open(f.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(0, flock(holder, LOCK_EX));
  // No wait at all, and no helper thread left behind waiting for the lock.
  const auto tasks = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
  };
  const auto before = tasks();
  setenv(KOVANI_HOST_PROPERTY_LOCK_TIMEOUT_ENV, "0", 1);
  EXPECT_EQ(0, property_set("persist.a", "3"));
  EXPECT_EQ(before, tasks());
  setenv(KOVANI_HOST_PROPERTY_LOCK_TIMEOUT_ENV, "1", 1);
  EXPECT_EQ(0, property_set("persist.a", "2"));
  setenv(KOVANI_HOST_PROPERTY_LOCK_TIMEOUT_ENV, "2", 1);
  EXPECT_EQ(-1, kovani_host_property_set_persist_file(f.c_str()));
  unsetenv(KOVANI_HOST_PROPERTY_LOCK_TIMEOUT_ENV);
  close(holder);
  EXPECT_EQ("persist.a=1\n", ReadFile(f));
  EXPECT_EQ("4 " + f + ":0: still locked by another process after 0 s\n4 " + f +
                ":0: still locked by another process after 1 s\n5 " + f +
                ":0: locked by another process; waiting up to 2 s\n3 " + f +
                ":0: still locked by another process after 2 s\n",
            g_reports);
}

}  // namespace
