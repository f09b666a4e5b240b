#include <cutils/properties.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <kovani_host_properties.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
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
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#ifndef KOVANI_HOST_PROP_CHILD
#error "KOVANI_HOST_PROP_CHILD must name the host_prop_child program"
#endif

namespace {

const std::string kLongText = "Must use __system_property_read_callback() to read";

std::string Get(const char* name, const char* def = "<def>") {
  char buf[PROPERTY_VALUE_MAX];
  const int len = property_get(name, buf, def);
  EXPECT_EQ(static_cast<int>(std::strlen(buf)), len) << name;
  return buf;
}

void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

std::vector<std::pair<std::string, std::string>> All() {
  std::vector<std::pair<std::string, std::string>> all;
  const int n = kovani_host_property_foreach(
      [](const char* name, const char* value, void* cookie) {
        static_cast<decltype(all)*>(cookie)->emplace_back(name, value);
      },
      &all);
  EXPECT_EQ(static_cast<int>(all.size()), n);
  return all;
}

// Redirects fd 2 into a temporary file until Text() is called.
class StderrCapture {
 public:
  StderrCapture() : file_(std::tmpfile()), saved_(dup(2)) {
    (void)std::fflush(stderr);
    dup2(fileno(file_), 2);
  }
  ~StderrCapture() {
    Text();
    (void)std::fclose(file_);
  }
  std::string Text() {
    if (saved_ >= 0) {
      (void)std::fflush(stderr);
      dup2(saved_, 2);
      close(saved_);
      saved_ = -1;
    }
    std::string text;
    std::rewind(file_);
    char buf[4096];
    for (size_t n; (n = std::fread(buf, 1, sizeof buf, file_)) > 0;) {
      text.append(buf, n);
    }
    return text;
  }

 private:
  FILE* file_;
  int saved_;
};

// host_prop_child with stdout on a pipe, stderr in a file and the
// KOVANI_PROPERTY_* environment replaced by env.
class Child {
 public:
  Child(std::vector<std::string> args, const std::vector<std::string>& env,
        const std::string& err_path) {
    std::vector<std::string> envs;
    for (char** e = environ; *e != nullptr; ++e) {
      if (std::strncmp(*e, "KOVANI_PROPERTY_", 16) != 0) envs.push_back(*e);
    }
    envs.insert(envs.end(), env.begin(), env.end());
    args.insert(args.begin(), KOVANI_HOST_PROP_CHILD);
    std::vector<char*> argv, envp;
    for (auto& a : args) argv.push_back(&a[0]);
    for (auto& e : envs) envp.push_back(&e[0]);
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_adddup2(&fa, fds[1], 1);
    posix_spawn_file_actions_addopen(&fa, 2, err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (posix_spawn(&pid_, argv[0], &fa, nullptr, argv.data(), envp.data())) pid_ = -1;
    posix_spawn_file_actions_destroy(&fa);
    close(fds[1]);
    out_ = fds[0];
  }
  ~Child() {
    if (pid_ > 0) Kill();
    if (out_ >= 0) close(out_);
  }
  bool started() const { return pid_ > 0; }
  // Next stdout line; false at EOF or when nothing arrives for 30 s.
  bool ReadLine(std::string* line) {
    while (buf_.find('\n') == std::string::npos) {
      pollfd p{out_, POLLIN, 0};
      char chunk[4096];
      if (poll(&p, 1, 30000) != 1) return false;
      const ssize_t n = read(out_, chunk, sizeof chunk);
      if (n <= 0) return false;
      buf_.append(chunk, static_cast<size_t>(n));
    }
    const size_t nl = buf_.find('\n');
    *line = buf_.substr(0, nl);
    buf_.erase(0, nl + 1);
    return true;
  }
  int Wait() {
    int status = -1;
    if (pid_ <= 0) return status;  // never wait for, or signal, "any process"
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return status;
  }
  int Kill() {
    if (pid_ > 0) kill(pid_, SIGKILL);
    return Wait();
  }

 private:
  pid_t pid_ = -1;
  int out_ = -1;
  std::string buf_;
};

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
    if (!dir_.empty()) std::filesystem::remove_all(dir_, ec);
  }
  std::string Path(const std::string& name) const { return dir_ + "/" + name; }

  // Runs the child to completion; returns its first stdout line.
  std::string Run(const std::vector<std::string>& args, const std::vector<std::string>& env,
                  int* status) {
    Child child(args, env, Path("child.err"));
    EXPECT_TRUE(child.started());
    std::string line;
    child.ReadLine(&line);
    *status = child.Wait();
    return line;
  }

  std::string dir_;
};

TEST_F(HostProperties, PropertyGet_DefaultsAndBufferBounds) {
  ASSERT_EQ(0, kovani_host_property_seed("vendor.set", "abc"));
  ASSERT_EQ(0, kovani_host_property_seed("vendor.empty", ""));
  const std::string long_def(200, 'd');
  const struct {
    const char* key;
    const char* def;
    std::string want;
  } cases[] = {
      {"vendor.set", "d", "abc"},
      {"vendor.empty", "d", "d"},
      {"vendor.absent", "d", "d"},
      {nullptr, "d", "d"},
      {"vendor.absent", nullptr, ""},
      {"vendor.empty", nullptr, ""},
      {"vendor.absent", long_def.c_str(), std::string(91, 'd')},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.key ? c.key : "(null)");
    char buf[128];
    std::memset(buf, 0x7f, sizeof buf);
    EXPECT_EQ(static_cast<int>(c.want.size()), property_get(c.key, buf, c.def));
    EXPECT_EQ(c.want, buf);
    for (size_t i = PROPERTY_VALUE_MAX; i < sizeof buf; ++i) {
      ASSERT_EQ(0x7f, buf[i]) << "wrote past PROPERTY_VALUE_MAX at " << i;
    }
  }
}

TEST_F(HostProperties, PropertySet_NameValidity) {
  const struct {
    const char* name;
    bool valid;
  } cases[] = {
      {"a", true},           {"vendor.radio.x", true},
      {"A-b_c@d:e.1", true}, {"0.1", true},
      {"", false},           {".a", false},
      {"a.", false},         {"a..b", false},
      {"a b", false},        {"a/b", false},
      {"a=b", false},        {"a\tb", false},
      {"\xc3\xa9", false},   {"a#b", false},
      {"a*", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.valid ? 0 : -1, property_set(c.name, "v"));
    EXPECT_EQ(c.valid ? 0 : -1, kovani_host_property_seed(c.name, "w"));
    EXPECT_EQ(c.valid ? "w" : "<def>", Get(c.name));
  }
  EXPECT_EQ(-1, property_set(nullptr, "v"));
  EXPECT_EQ(-1, kovani_host_property_seed(nullptr, "v"));
}

TEST_F(HostProperties, PropertySet_ValueLengthBoundary) {
  const struct {
    const char* name;
    size_t len;
    int rc;
  } cases[] = {
      {"vendor.a", 91, 0}, {"vendor.b", 92, -1}, {"persist.c", 92, -1},
      {"ro.d", 91, 0},     {"ro.e", 92, 0},      {"ro.f", 1000, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string value(c.len, 'v');
    EXPECT_EQ(c.rc, property_set(c.name, value.c_str()));
    const std::string want = c.rc != 0 ? "<def>" : c.len < 92 ? value : kLongText;
    EXPECT_EQ(want, Get(c.name));
  }
}

TEST_F(HostProperties, PropertySet_NullValueMeansEmpty) {
  ASSERT_EQ(0, property_set("vendor.n", "x"));
  EXPECT_EQ(0, property_set("vendor.n", nullptr));
  EXPECT_EQ("<def>", Get("vendor.n"));
  EXPECT_EQ(0, property_set("ro.n", nullptr));
  EXPECT_EQ(-1, property_set("ro.n", "x")) << "an empty ro. value is set too";
}

TEST_F(HostProperties, PropertySet_ReadOnlyIsWriteOnce) {
  ASSERT_EQ(0, property_set("ro.a", "1"));
  EXPECT_EQ(-1, property_set("ro.a", "2"));
  EXPECT_EQ(-1, property_set("ro.a", "1"));
  EXPECT_EQ("1", Get("ro.a"));
  EXPECT_EQ(0, property_set("vendor.a", "1"));
  EXPECT_EQ(0, property_set("vendor.a", "2"));
  EXPECT_EQ("2", Get("vendor.a"));
  WriteFile(Path("p"), "ro.b=profile\n");
  ASSERT_EQ(0, kovani_host_property_load(Path("p").c_str()));
  EXPECT_EQ(-1, property_set("ro.b", "x"));
  EXPECT_EQ("profile", Get("ro.b"));
}

TEST_F(HostProperties, PropertySet_Utf8Validation) {
  const struct {
    const char* value;
    int rc;
  } cases[] = {
      {"caf\xc3\xa9", 0},       {"\xe2\x82\xac", 0},  {"\xf0\x9d\x84\x9e", 0}, {"\xff", -1},
      {"\xc0\xaf", -1},         {"\xe0\x80\xaf", -1}, {"\xed\xa0\x80", -1},    {"\xe2\x82", -1},
      {"\xf4\x90\x80\x80", -1}, {"a\x80", -1},
  };
  for (size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(cases[i].rc, property_set("vendor.u", cases[i].value));
    EXPECT_EQ(cases[i].rc == 0 ? cases[i].value : "<def>", Get("vendor.u"));
    kovani_host_property_unset("vendor.u");
  }
}

TEST_F(HostProperties, Load_BuildPropFormat) {
  WriteFile(Path("build.prop"),
            "# comment\n\n   \t\nro.build.a=one\r\n"
            "  vendor.spaced  =  two words  \r\n"
            "vendor.eq=a=b=c\nro.dup=first\nvendor.dup=first\n"
            "  # indented comment\nro.dup=second\nvendor.dup=second\n"
            "vendor.last=no newline");
  StderrCapture err;
  EXPECT_EQ(0, kovani_host_property_load(Path("build.prop").c_str()));
  EXPECT_EQ("", err.Text());
  EXPECT_EQ("one", Get("ro.build.a"));
  EXPECT_EQ("two words", Get("vendor.spaced"));
  EXPECT_EQ("a=b=c", Get("vendor.eq"));
  EXPECT_EQ("second", Get("ro.dup"));
  EXPECT_EQ("second", Get("vendor.dup"));
  EXPECT_EQ("no newline", Get("vendor.last"));
  EXPECT_EQ(6u, All().size());
}

TEST_F(HostProperties, Load_GetpropFormat) {
  WriteFile(Path("dump.txt"),
            "[ro.product.model]: [Pixel 7]\n[vendor.br]: [a]b] [c]\n"
            "[vendor.eq]: [x=y]\r\n[vendor.empty]: []\n[vendor.dup]: [1]\n"
            "vendor.dup=2\n[ro.dup]: [1]\n[ro.dup]: [2]\n");
  StderrCapture err;
  EXPECT_EQ(0, kovani_host_property_load(Path("dump.txt").c_str()));
  EXPECT_EQ("", err.Text());
  EXPECT_EQ("Pixel 7", Get("ro.product.model"));
  EXPECT_EQ("a]b] [c", Get("vendor.br"));
  EXPECT_EQ("x=y", Get("vendor.eq"));
  EXPECT_EQ("<def>", Get("vendor.empty"));
  EXPECT_EQ("2", Get("vendor.dup"));
  EXPECT_EQ("2", Get("ro.dup"));
}

TEST_F(HostProperties, Load_BadLinesReportedOnceAndSkipped) {
  const std::string path = Path("bad.prop");
  WriteFile(path,
            "vendor.good1=1\nno equals here\nbad..name=1\n"
            "[vendor.x] [no colon]\n[vendor.y]: [open\n"
            "vendor.long=" +
                std::string(92, 'x') + "\nimport /vendor/build.prop\nro.long=" +
                std::string(200, 'x') + "\nvendor.utf=\xff\n=value\nvendor.good2=2\n");
  StderrCapture err;
  EXPECT_EQ(8, kovani_host_property_load(path.c_str()));
  const std::string text = err.Text();
  std::istringstream lines(text);
  std::string line;
  const int bad[] = {2, 3, 4, 5, 6, 7, 9, 10};
  for (int n : bad) {
    ASSERT_TRUE(std::getline(lines, line)) << text;
    EXPECT_EQ(0u, line.find(path + ":" + std::to_string(n) + ": ")) << line;
    EXPECT_NE(std::string::npos, line.find(", line skipped")) << line;
  }
  EXPECT_FALSE(std::getline(lines, line)) << text;
  const auto all = All();
  ASSERT_EQ(3u, all.size());
  EXPECT_EQ("ro.long", all[0].first);
  EXPECT_EQ(std::string(200, 'x'), all[0].second);
  EXPECT_EQ("1", Get("vendor.good1"));
  EXPECT_EQ("2", Get("vendor.good2"));
}

TEST_F(HostProperties, Load_UnreadableFileFailsWithErrno) {
  const struct {
    std::string path;
    int err;
  } cases[] = {{Path("missing"), ENOENT}, {dir_, EISDIR}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    errno = 0;
    EXPECT_EQ(-1, kovani_host_property_load(c.path.c_str()));
    EXPECT_EQ(c.err, errno);
  }
  EXPECT_EQ(-1, kovani_host_property_load(nullptr));
}

TEST_F(HostProperties, Seed_BypassesWriteOnceAndLength) {
  ASSERT_EQ(0, property_set("ro.a", "1"));
  EXPECT_EQ(0, kovani_host_property_seed("ro.a", "2"));
  EXPECT_EQ("2", Get("ro.a"));
  EXPECT_EQ(0, kovani_host_property_seed("vendor.l", std::string(150, 'l').c_str()));
  EXPECT_EQ(kLongText, Get("vendor.l"));
  ASSERT_EQ(0, kovani_host_property_set_persist_file(Path("persist").c_str()));
  EXPECT_EQ(0, kovani_host_property_seed("persist.s", "1"));
  EXPECT_FALSE(std::filesystem::exists(Path("persist")));
}

TEST_F(HostProperties, Unset_RemovesOnlyPresent) {
  ASSERT_EQ(0, property_set("ro.a", "1"));
  EXPECT_EQ(0, kovani_host_property_unset("ro.a"));
  EXPECT_EQ(-1, kovani_host_property_unset("ro.a"));
  EXPECT_EQ(-1, kovani_host_property_unset(nullptr));
  EXPECT_EQ(-1, kovani_host_property_unset("a..b"));
  EXPECT_EQ("<def>", Get("ro.a"));
  EXPECT_EQ(0, property_set("ro.a", "2"));
  ASSERT_EQ(0, kovani_host_property_set_persist_file(Path("persist").c_str()));
  ASSERT_EQ(0, property_set("persist.a", "1"));
  EXPECT_EQ(0, kovani_host_property_unset("persist.a"));
  ASSERT_EQ(0, property_set("persist.b", "1"));
  EXPECT_EQ(std::string::npos, ReadFile(Path("persist")).find("persist.a"));
}

TEST_F(HostProperties, Reset_ForgetsPropertiesAndPersistFile) {
  ASSERT_EQ(0, kovani_host_property_set_persist_file(Path("persist").c_str()));
  ASSERT_EQ(0, property_set("persist.a", "1"));
  kovani_host_property_reset();
  EXPECT_EQ("<def>", Get("persist.a"));
  EXPECT_EQ(0, property_set("persist.b", "2"));
  EXPECT_EQ(std::string::npos, ReadFile(Path("persist")).find("persist.b"));
  EXPECT_EQ(1u, All().size());
}

TEST_F(HostProperties, Reset_EnvironmentNotLoadedAfterwards) {
  WriteFile(Path("profile"), "vendor.env=1\n");
  WriteFile(Path("persist"), "persist.env=1\n");
  setenv("KOVANI_PROPERTY_PROFILE", Path("profile").c_str(), 1);
  setenv("KOVANI_PROPERTY_PERSIST", Path("persist").c_str(), 1);
  kovani_host_property_reset();
  EXPECT_EQ("<def>", Get("vendor.env"));
  EXPECT_EQ("<def>", Get("persist.env"));
  unsetenv("KOVANI_PROPERTY_PROFILE");
  unsetenv("KOVANI_PROPERTY_PERSIST");
}

TEST_F(HostProperties, Foreach_NameOrderFullValuesReentrant) {
  for (const char* name : {"vendor.b", "vendor.a", "vendor.c"}) {
    ASSERT_EQ(0, property_set(name, name));
  }
  ASSERT_EQ(0, property_set("ro.long", std::string(300, 'x').c_str()));
  const auto all = All();
  ASSERT_EQ(4u, all.size());
  EXPECT_EQ("ro.long", all[0].first);
  EXPECT_EQ(std::string(300, 'x'), all[0].second);
  EXPECT_EQ("vendor.a", all[1].first);
  EXPECT_EQ("vendor.c", all[3].second);
  int calls = 0;
  EXPECT_EQ(4, kovani_host_property_foreach(
                   [](const char* name, const char*, void* cookie) {
                     char buf[PROPERTY_VALUE_MAX];
                     property_get(name, buf, "");  // must not deadlock
                     ++*static_cast<int*>(cookie);
                   },
                   &calls));
  EXPECT_EQ(4, calls);
  EXPECT_EQ(4, kovani_host_property_foreach(nullptr, nullptr));
}

TEST_F(HostProperties, PersistFile_RoundTripKeepsValuesExactly) {
  const std::string path = Path("persist");
  ASSERT_EQ(0, kovani_host_property_set_persist_file(path.c_str()));
  ASSERT_EQ(0, property_set("persist.a", "l1\nl2\\x\r"));
  ASSERT_EQ(0, property_set("persist.sp", "  padded  "));
  ASSERT_EQ(0, property_set("vendor.np", "1"));
  const std::string text = ReadFile(path);
  EXPECT_EQ('#', text[0]);
  EXPECT_NE(std::string::npos, text.find("\npersist.a=l1\\nl2\\\\x\\r\n"));
  EXPECT_EQ(std::string::npos, text.find("vendor.np"));
  size_t files = 0;
  for (const auto& e : std::filesystem::directory_iterator(dir_)) {
    ++files;
    EXPECT_EQ(path, e.path().string()) << "leftover temporary file";
  }
  EXPECT_EQ(1u, files);
  // A rewrite in place would show through a hard link to the old file.
  ASSERT_EQ(0, link(path.c_str(), Path("old").c_str()));
  ASSERT_EQ(0, property_set("persist.b", "1"));
  EXPECT_EQ(text, ReadFile(Path("old")));
  EXPECT_EQ(std::string::npos, ReadFile(path).find("vendor.np"));
  kovani_host_property_reset();
  ASSERT_EQ(0, kovani_host_property_set_persist_file(path.c_str()));
  EXPECT_EQ("l1\nl2\\x\r", Get("persist.a"));
  EXPECT_EQ("  padded  ", Get("persist.sp"));
  EXPECT_EQ("<def>", Get("vendor.np"));
}

TEST_F(HostProperties, PersistFile_AttachLoadsOverAndReportsBadLines) {
  const std::string path = Path("persist");
  WriteFile(path,
            "# header\npersist.a=file\nvendor.b=2\npersist.c=bad\\q\n"
            "persist.d=tail\\\npersist.e=" +
                std::string(92, 'x') + "\npersist.f=ok\r\n");
  ASSERT_EQ(0, kovani_host_property_seed("persist.a", "memory"));
  StderrCapture err;
  EXPECT_EQ(0, kovani_host_property_set_persist_file(path.c_str()));
  const std::string text = err.Text();
  for (int n : {3, 4, 5, 6}) {
    EXPECT_NE(std::string::npos, text.find(path + ":" + std::to_string(n) + ": ")) << text;
  }
  EXPECT_EQ(4, std::count(text.begin(), text.end(), '\n')) << text;
  EXPECT_EQ("file", Get("persist.a"));
  EXPECT_EQ("ok", Get("persist.f"));
  EXPECT_EQ("<def>", Get("vendor.b"));
  EXPECT_EQ(0, kovani_host_property_set_persist_file(Path("none").c_str()));
  errno = 0;
  EXPECT_EQ(-1, kovani_host_property_set_persist_file(dir_.c_str()));
  EXPECT_EQ(EISDIR, errno);
}

TEST_F(HostProperties, PersistFile_WriteFailureReportedSetSucceeds) {
  const std::string path = Path("no/dir/persist");
  ASSERT_EQ(0, kovani_host_property_set_persist_file(path.c_str()));
  StderrCapture err;
  EXPECT_EQ(0, property_set("persist.x", "1"));
  const std::string text = err.Text();
  EXPECT_NE(std::string::npos, text.find(path)) << text;
  EXPECT_NE(std::string::npos, text.find(std::strerror(ENOENT))) << text;
  EXPECT_EQ("1", Get("persist.x"));
}

TEST_F(HostProperties, Child_PersistSurvivesRestart) {
  const std::vector<std::string> env = {"KOVANI_PROPERTY_PERSIST=" + Path("persist")};
  int status;
  Run({"set", "persist.x", "5"}, env, &status);
  EXPECT_EQ(0, status);
  Run({"set", "vendor.y", "7"}, env, &status);
  EXPECT_EQ(0, status);
  Run({"set", "persist.w", "6"}, env, &status);  // rewrites loaded values too
  EXPECT_EQ(0, status);
  EXPECT_EQ("5", Run({"get", "persist.x"}, env, &status));
  EXPECT_EQ("", Run({"get", "vendor.y"}, env, &status));
  EXPECT_EQ("", ReadFile(Path("child.err")));
}

TEST_F(HostProperties, Child_ProfileFromEnvironment) {
  WriteFile(Path("profile"), "ro.a=profile\npersist.z=profile\nbroken\n");
  WriteFile(Path("persist"), "persist.z=persisted\n");
  const std::vector<std::string> env = {"KOVANI_PROPERTY_PROFILE=" + Path("profile"),
                                        "KOVANI_PROPERTY_PERSIST=" + Path("persist")};
  int status;
  EXPECT_EQ("profile", Run({"get", "ro.a"}, env, &status));
  EXPECT_EQ(Path("profile") + ":3: missing '=', line skipped\n", ReadFile(Path("child.err")));
  EXPECT_EQ("persisted", Run({"get", "persist.z"}, env, &status));
  EXPECT_EQ("", Run({"get", "ro.a"}, {"KOVANI_PROPERTY_PROFILE=" + dir_}, &status));
  EXPECT_EQ(dir_ + ": " + std::strerror(EISDIR) + "\n", ReadFile(Path("child.err")));
}

TEST_F(HostProperties, Child_KillDuringWriteLeavesWholeFile) {
  const std::string path = Path("persist");
  const std::vector<std::string> env = {"KOVANI_PROPERTY_PERSIST=" + path};
  long acked = 0;
  {
    Child spin({"spin", "persist.counter"}, env, Path("spin.err"));
    ASSERT_TRUE(spin.started());
    for (std::string line; acked < 200 && spin.ReadLine(&line);) {
      acked = std::stol(line);
    }
    const int status = spin.Kill();
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
  }
  ASSERT_GE(acked, 200) << ReadFile(Path("spin.err"));
  int status;
  const std::string got = Run({"get", "persist.counter"}, env, &status);
  EXPECT_EQ("", ReadFile(Path("child.err")));
  char* end = nullptr;
  const long value = std::strtol(got.c_str(), &end, 10);
  EXPECT_TRUE(!got.empty() && *end == '\0') << got;
  EXPECT_GE(value, acked);
  StderrCapture err;
  EXPECT_EQ(0, kovani_host_property_load(path.c_str()));
  EXPECT_EQ(0, kovani_host_property_set_persist_file(path.c_str()));
  EXPECT_EQ("", err.Text());
  EXPECT_EQ(got, Get("persist.counter"));
}

std::string ThreadValue(int t, int i) {
  const std::string head = std::to_string(t) + ":" + std::to_string(i) + ":";
  return head +
         std::string(20 + (i * 7 + t) % 71 - head.size(), static_cast<char>('a' + (t + i) % 26));
}

TEST_F(HostProperties, Concurrency_GetsSeeWholeWrittenValues) {
  constexpr int kThreads = 8, kIterations = 2000;
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &failures] {
      const std::string own = "vendor.t" + std::to_string(t);
      for (int i = 0; i < kIterations; ++i) {
        const std::string v = ThreadValue(t, i);
        char buf[PROPERTY_VALUE_MAX];
        if (property_set("vendor.shared", v.c_str()) != 0 ||
            property_set(own.c_str(), v.c_str()) != 0 ||
            property_get(own.c_str(), buf, "") != static_cast<int>(v.size()) || v != buf) {
          ++failures;
        }
        int rt = -1, ri = -1;
        property_get("vendor.shared", buf, "");
        if (std::sscanf(buf, "%d:%d:", &rt, &ri) != 2 || rt < 0 || rt >= kThreads || ri < 0 ||
            ri >= kIterations || ThreadValue(rt, ri) != buf) {
          ++failures;
        }
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(0, failures.load());
}

TEST_F(HostProperties, Concurrency_PersistFileMatchesMemory) {
  const std::string path = Path("persist");
  ASSERT_EQ(0, kovani_host_property_set_persist_file(path.c_str()));
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 25; ++i) {
        property_set("persist.c", ThreadValue(t, i).c_str());
      }
    });
  }
  for (auto& th : threads) th.join();
  const std::string want = Get("persist.c");
  kovani_host_property_reset();
  ASSERT_EQ(0, kovani_host_property_set_persist_file(path.c_str()));
  EXPECT_EQ(want, Get("persist.c"));
}

}  // namespace
