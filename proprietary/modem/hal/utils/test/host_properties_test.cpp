#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <kovani_host_properties.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#ifndef KOVANI_HOST_PROP_CHILD
#error "KOVANI_HOST_PROP_CHILD must name the host_prop_child program"
#endif

namespace {

const std::string kLongText = "Must use __system_property_read_callback() to read";

// Reads into a guarded buffer so a write past PROPERTY_VALUE_MAX shows.
std::string Get(const char* name, const char* def = "<def>") {
  char buf[PROPERTY_VALUE_MAX + 16];
  std::memset(buf, 0x7f, sizeof buf);
  const int len = property_get(name, buf, def);
  EXPECT_EQ(std::string(16, '\x7f'), std::string(buf + PROPERTY_VALUE_MAX, 16));
  EXPECT_EQ(static_cast<int>(std::strlen(buf)), len);
  return buf;
}

void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

std::string ReadFile(const std::string& path) {
  std::stringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

// Every property as "name=value" lines.
std::string All() {
  std::string all;
  const int n = kovani_host_property_foreach(
      [](const char* name, const char* value, void* cookie) {
        char buf[PROPERTY_VALUE_MAX];
        property_get(name, buf, "");  // callbacks may use the store
        *static_cast<std::string*>(cookie) += std::string(name) + "=" + value + "\n";
      },
      &all);
  EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), n);
  return all;
}

std::string Line(FILE* f) {
  char buf[256];
  if (f == nullptr || std::fgets(buf, sizeof buf, f) == nullptr) return "<eof>";
  return std::string(buf, std::strcspn(buf, "\n"));
}

class HostProperties : public ::testing::Test {
 protected:
  void SetUp() override {
    kovani_host_property_reset();
    char tmpl[] = "/tmp/host_props.XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(tmpl));
    dir_ = tmpl;
  }
  void TearDown() override {
    kovani_host_property_reset();
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
  }
  std::string Path(const std::string& name) const { return dir_ + "/" + name; }

  // host_prop_child with env as its only property variables and stderr in
  // child.err. Its first line is its pid: exec keeps the shell's.
  FILE* Start(const std::string& env, const std::string& args) const {
    const std::string cmd =
        "echo $$; exec env -u KOVANI_PROPERTY_PROFILE -u KOVANI_PROPERTY_PERSIST " + env +
        " " KOVANI_HOST_PROP_CHILD " " + args + " 2>" + Path("child.err");
    return popen(cmd.c_str(), "r");
  }
  // Runs the child to a clean exit; returns its output line.
  std::string Run(const std::string& env, const std::string& args) const {
    FILE* f = Start(env, args);
    Line(f);
    const std::string out = Line(f);
    EXPECT_EQ(0, f == nullptr ? -1 : pclose(f)) << args;
    return out;
  }

  std::string dir_;
};

TEST_F(HostProperties, GetFallsBackToDefault) {
  ASSERT_EQ(0, kovani_host_property_seed("vendor.set", "abc"));
  ASSERT_EQ(0, kovani_host_property_seed("vendor.empty", ""));
  const std::string long_def(200, 'd');
  const std::tuple<const char*, const char*, std::string> cases[] = {
      {"vendor.set", "d", "abc"},     {"vendor.empty", "d", "d"},
      {"vendor.absent", "d", "d"},    {nullptr, "d", "d"},
      {"vendor.absent", nullptr, ""}, {"vendor.absent", long_def.c_str(), std::string(91, 'd')},
  };
  for (const auto& [key, def, want] : cases) {
    SCOPED_TRACE(key ? key : "(null)");
    EXPECT_EQ(want, Get(key, def));
  }
}

TEST_F(HostProperties, NameValidity) {
  const std::pair<const char*, bool> cases[] = {
      {"a", true},   {"A-b_c@d:e.1", true}, {"", false},    {".a", false},
      {"a.", false}, {"a..b", false},       {"a b", false}, {"a=b", false},
  };
  for (const auto& [name, valid] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(valid ? 0 : -1, property_set(name, "v"));
    EXPECT_EQ(valid ? 0 : -1, kovani_host_property_seed(name, "w"));
    EXPECT_EQ(valid ? "w" : "<def>", Get(name));
  }
  EXPECT_EQ(-1, property_set(nullptr, "v"));
}

TEST_F(HostProperties, ValueLengthBoundary) {
  const std::pair<const char*, size_t> cases[] = {
      {"vendor.a", 91}, {"vendor.b", 92}, {"ro.c", 91}, {"ro.d", 92}};
  for (const auto& [name, len] : cases) {
    SCOPED_TRACE(name);
    const std::string value(len, 'v');
    const bool ok = len < 92 || name[0] == 'r';  // ro. values may be longer
    EXPECT_EQ(ok ? 0 : -1, property_set(name, value.c_str()));
    EXPECT_EQ(!ok ? "<def>" : len < 92 ? value : kLongText, Get(name));
  }
}

TEST_F(HostProperties, ReadOnlyIsWriteOnce) {
  WriteFile(Path("p"), "ro.b=profile\n");
  ASSERT_EQ(0, kovani_host_property_load(Path("p").c_str()));
  ASSERT_EQ(0, property_set("ro.a", "1"));
  EXPECT_EQ(-1, property_set("ro.a", "2"));
  EXPECT_EQ(-1, property_set("ro.b", "x"));
  EXPECT_EQ("1", Get("ro.a"));
  EXPECT_EQ("profile", Get("ro.b"));
}

TEST_F(HostProperties, RefusesInvalidUtf8) {
  // Overlong, cut short, then valid.
  for (const char* v : {"\xc0\xaf", "\xe2\x82", "caf\xc3\xa9"}) {
    const bool ok = v[0] == 'c';
    EXPECT_EQ(ok ? 0 : -1, property_set("vendor.u", v));
    EXPECT_EQ(ok ? v : "<def>", Get("vendor.u"));
  }
}

TEST_F(HostProperties, NullValueMeansEmpty) {
  ASSERT_EQ(0, property_set("vendor.n", "x"));
  EXPECT_EQ(0, property_set("vendor.n", nullptr));
  EXPECT_EQ("<def>", Get("vendor.n"));
  EXPECT_EQ(0, property_set("ro.n", nullptr));
  EXPECT_EQ(-1, property_set("ro.n", "x")) << "an empty ro. value is set too";
}

TEST_F(HostProperties, LoadsBuildPropAndGetpropLines) {
  WriteFile(Path("profile"),
            "# comment\n\n   \t\nro.a=one\r\n  vendor.sp  =  two words  \r\nvendor.eq=a=b=c\n"
            "  # indented\nvendor.dup=first\nvendor.dup=second\n[vendor.br]: [a]b] [c]\n"
            "[vendor.gq]: [x=y]\r\n[ro.dup]: [1]\n[ro.dup]: [2]\nvendor.last=no newline");
  testing::internal::CaptureStderr();
  EXPECT_EQ(0, kovani_host_property_load(Path("profile").c_str()));
  EXPECT_EQ("", testing::internal::GetCapturedStderr());
  EXPECT_EQ(
      "ro.a=one\nro.dup=2\nvendor.br=a]b] [c\nvendor.dup=second\nvendor.eq=a=b=c\n"
      "vendor.gq=x=y\nvendor.last=no newline\nvendor.sp=two words\n",
      All());
}

TEST_F(HostProperties, LoadReportsBadLinesAndSkipsThem) {
  const std::string path = Path("bad");
  WriteFile(path, "vendor.g1=1\nno equals\nbad..name=1\n[vendor.x] [v]\nvendor.l=" +
                      std::string(92, 'x') + "\nvendor.u=\xff\nvendor.g2=2\n");
  testing::internal::CaptureStderr();
  EXPECT_EQ(5, kovani_host_property_load(path.c_str()));
  std::istringstream err(testing::internal::GetCapturedStderr());
  std::string line;
  for (int n : {2, 3, 4, 5, 6}) {
    ASSERT_TRUE(std::getline(err, line)) << n;
    EXPECT_EQ(line.rfind(path + ":" + std::to_string(n) + ": ", 0), 0u) << line;
    EXPECT_EQ(line.substr(line.size() - 14), ", line skipped") << line;
  }
  EXPECT_FALSE(std::getline(err, line)) << line;
  EXPECT_EQ("vendor.g1=1\nvendor.g2=2\n", All());
  errno = 0;
  EXPECT_EQ(-1, kovani_host_property_load(Path("missing").c_str()));
  EXPECT_EQ(ENOENT, errno);
}

TEST_F(HostProperties, SeedUnsetResetForeach) {
  const std::string persist = Path("persist");
  ASSERT_EQ(0, kovani_host_property_set_persist_file(persist.c_str()));
  ASSERT_EQ(0, property_set("ro.a", "1"));
  // Seeding skips write-once, the length limit and the persistence file.
  EXPECT_EQ(0, kovani_host_property_seed("ro.a", "2"));
  EXPECT_EQ(0, kovani_host_property_seed("vendor.l", std::string(150, 'l').c_str()));
  EXPECT_EQ(0, kovani_host_property_seed("persist.s", "s"));
  EXPECT_EQ("persist.s=s\nro.a=2\nvendor.l=" + std::string(150, 'l') + "\n", All());
  EXPECT_EQ(0, kovani_host_property_unset("ro.a"));
  EXPECT_EQ(-1, kovani_host_property_unset("ro.a"));
  EXPECT_EQ(0, property_set("ro.a", "3"));
  ASSERT_EQ(0, property_set("persist.u", "1"));
  EXPECT_EQ(0, kovani_host_property_unset("persist.u"));
  ASSERT_EQ(0, property_set("persist.v", "1"));
  const std::string text = ReadFile(persist);
  EXPECT_NE(std::string::npos, text.find("persist.v=1\n")) << text;
  EXPECT_EQ(std::string::npos, text.find("persist.u")) << text;
  EXPECT_EQ(std::string::npos, text.find("persist.s")) << text;
  kovani_host_property_reset();
  EXPECT_EQ(0, property_set("persist.b", "1"));
  EXPECT_EQ(std::string::npos, ReadFile(persist).find("persist.b")) << "reset detaches the file";
  EXPECT_EQ("persist.b=1\n", All());
}

TEST_F(HostProperties, PersistFileReplacedWholeAndExact) {
  const std::string path = Path("persist");
  ASSERT_EQ(0, kovani_host_property_set_persist_file(path.c_str()));
  ASSERT_EQ(0, property_set("persist.a", "l1\nl2\\x\r"));
  // A rewrite in place would show through a hard link to the old file.
  ASSERT_EQ(0, link(path.c_str(), Path("old").c_str()));
  const std::string before = ReadFile(path);
  ASSERT_EQ(0, property_set("persist.b", "  padded  "));
  EXPECT_EQ(before, ReadFile(Path("old")));
  using std::filesystem::directory_iterator;
  EXPECT_EQ(2, std::distance(directory_iterator(dir_), directory_iterator())) << "temporary left";
  kovani_host_property_reset();
  ASSERT_EQ(0, kovani_host_property_set_persist_file(path.c_str()));
  EXPECT_EQ("l1\nl2\\x\r", Get("persist.a"));
  EXPECT_EQ("  padded  ", Get("persist.b"));
}

TEST_F(HostProperties, PersistSurvivesRestart) {
  const std::string env = "KOVANI_PROPERTY_PERSIST=" + Path("persist");
  Run(env, "set persist.x 5");
  Run(env, "set vendor.y 7");
  Run(env, "set persist.w 6");  // the rewrite must keep values loaded at start
  EXPECT_EQ("5", Run(env, "get persist.x"));
  EXPECT_EQ("", Run(env, "get vendor.y"));
  EXPECT_EQ("", ReadFile(Path("child.err")));
}

TEST_F(HostProperties, ProfileFromEnvironment) {
  WriteFile(Path("profile"), "ro.a=profile\npersist.z=profile\nbroken\n");
  WriteFile(Path("persist"), "persist.z=persisted\n");
  const std::string env =
      "KOVANI_PROPERTY_PROFILE=" + Path("profile") + " KOVANI_PROPERTY_PERSIST=" + Path("persist");
  EXPECT_EQ("profile", Run(env, "get ro.a"));
  EXPECT_EQ(0u, ReadFile(Path("child.err")).find(Path("profile") + ":3: "));
  EXPECT_EQ("persisted", Run(env, "get persist.z"));  // the persist file wins
}

TEST_F(HostProperties, KillDuringWritesLeavesWholeFile) {
  const std::string env = "KOVANI_PROPERTY_PERSIST=" + Path("persist");
  FILE* spin = Start(env, "spin persist.n");
  ASSERT_NE(nullptr, spin);
  const pid_t pid = std::atoi(Line(spin).c_str());
  ASSERT_GT(pid, 0);
  long acked = 0;
  for (std::string l; acked < 200 && (l = Line(spin)) != "<eof>";) acked = std::stol(l);
  kill(pid, SIGKILL);
  const int status = pclose(spin);
  ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << ReadFile(Path("child.err"));
  ASSERT_GE(acked, 200);
  const std::string got = Run(env, "get persist.n");
  EXPECT_EQ("", ReadFile(Path("child.err")));
  EXPECT_EQ(got, std::to_string(std::atol(got.c_str())));
  EXPECT_GE(std::atol(got.c_str()), acked);
}

std::string ThreadValue(int t, int i) {
  const std::string head = std::to_string(t) + ":" + std::to_string(i) + ":";
  return head + std::string(20 + (i * 7 + t) % 71 - head.size(), 'a' + (t + i) % 26);
}

TEST_F(HostProperties, ConcurrentGetsSeeWholeWrittenValues) {
  constexpr int kThreads = 8, kIterations = 2000;
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &failures] {
      for (int i = 0; i < kIterations; ++i) {
        char buf[PROPERTY_VALUE_MAX];
        int rt = -1, ri = -1;
        if (property_set("vendor.shared", ThreadValue(t, i).c_str()) != 0 ||
            property_get("vendor.shared", buf, "") < 20 ||
            std::sscanf(buf, "%d:%d:", &rt, &ri) != 2 || rt < 0 || rt >= kThreads || ri < 0 ||
            ri >= kIterations || ThreadValue(rt, ri) != buf) {
          ++failures;
        }
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(0, failures.load());
}

}  // namespace
