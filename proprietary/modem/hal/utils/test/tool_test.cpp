// The tool's cases, data/tool_cases.txt, each a few runs of kovani-utils
// and the checks of their exit status, outputs and files.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>

#include "child_process.h"
#include "fake_adb.h"
#include "library_test.h"
#include "text.h"

namespace {

using namespace kovani_test;

struct Case {
  std::string name;
  std::vector<std::string> steps;
};

void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

std::vector<Case> Cases() {
  std::vector<Case> cases;
  std::ifstream in(KOVANI_TEST_DATA_DIR "/tool_cases.txt");
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("== ", 0) == 0) cases.push_back({line.substr(3), {}});
    if (!line.empty() && line[0] != '#' && line[0] != '=' && !cases.empty()) {
      cases.back().steps.push_back(line);
    }
  }
  return cases;
}

std::string Read(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// The protocol version of the adb on PATH, "" without one.
std::string AdbVersion() {
  ChildOptions options;
  options.built = false;
  const ChildRun run = RunChild({"adb", "version"}, options);
  const size_t at = run.out.find("1.0.");
  if (run.status != 0 || at == std::string::npos) return "";
  char version[5];
  snprintf(version, sizeof(version), "%04x", std::stoi(run.out.substr(at + 4)));
  return version;
}

class Tool : public ::testing::TestWithParam<Case> {};

TEST_P(Tool, Case) {
  const TempDir folder;
  const std::string dir = folder.Path();
  std::unique_ptr<FakeAdbServer> adb;
  ChildOptions options;
  ChildRun run;
  for (const std::string& raw : GetParam().steps) {
    std::string line = raw;
    for (size_t at; (at = line.find("{dir}")) != std::string::npos;) line.replace(at, 5, dir);
    const std::vector<std::string> t = Tokens(line);
    std::string text;
    if (t.size() > 1) ParseText(t.back(), &text);
    const std::string& what = t[0];
    const std::string name = t.size() > 1 ? t[1] : "";
    SCOPED_TRACE(line);
    struct stat st = {};
    if (what == "!" && name == "file") {
      std::string file;
      ParseText(t[2], &file);
      std::ofstream(dir + file, std::ios::binary) << text;
    } else if (what == "!" && name == "fifo") {
      ASSERT_EQ(mkfifo((dir + t[2]).c_str(), 0600), 0);
    } else if (what == "!" && name == "mode") {
      chmod((dir + t[2]).c_str(), std::stoul(t[3], nullptr, 8));
    } else if (what == "!" && name == "symlink") {
      std::filesystem::create_symlink(t[3], dir + t[2]);
    } else if (what == "!" && name == "env") {
      options.env.push_back(text);
    } else if (what == "!" && (name == "stdout" || name == "stderr")) {
      (name == "stdout" ? options.out : options.err) = text;
    } else if (what == "!" && (name == "adb" || name == "device")) {
      if (adb == nullptr) {
        const std::string version = AdbVersion();
        if (version.empty()) GTEST_SKIP() << "no adb on PATH";
        adb = std::make_unique<FakeAdbServer>(version);
        options.env.push_back("ANDROID_ADB_SERVER_PORT=" + std::to_string(adb->port()));
      }
      if (name == "device") {
        adb->SetDevice(t[2], t[3], Read(KOVANI_TEST_DATA_DIR "/kestrel_cert.getprop"));
      }
    } else if (what == "<") {
      options.input = text;
    } else if (what == "$") {
      std::vector<std::string> argv = {KOVANI_TOOL};
      for (size_t i = 1; i < t.size(); ++i) argv.push_back(ParseText(t[i], &text) ? text : "");
      options.env.insert(options.env.end(), {"KOVANI_PROPERTY_PROFILE", "KOVANI_PROPERTY_PERSIST"});
      run = RunChild(argv, options);
      options.out = options.err = options.input = "";
    } else if (what == "exit") {
      EXPECT_EQ(run.status, std::stoi(name)) << run.err;
    } else if (what == "out" || what == "err") {  // has, lacks or is TEXT
      const std::string& output = what == "out" ? run.out : run.err;
      EXPECT_EQ(name == "is" ? output == text : output.find(text) != std::string::npos,
                name != "lacks")
          << output;
    } else if (what == "json") {  // POINTER VALUE
      const auto json = nlohmann::json::parse(run.out, nullptr, false);
      ASSERT_FALSE(json.is_discarded()) << run.out;
      EXPECT_EQ(json.value(nlohmann::json::json_pointer(name), nlohmann::json()),
                nlohmann::json::parse(line.substr(line.find(name) + name.size() + 1)));
    } else if (what == "file") {  // NAME [has] TEXT
      const std::string content = Read(dir + name);
      EXPECT_TRUE(t.size() > 3 ? content.find(text) != std::string::npos : content == text)
          << content;
    } else if (what == "mode") {
      ASSERT_EQ(stat((dir + name).c_str(), &st), 0);
      EXPECT_EQ(st.st_mode & 07777, std::stoul(t[2], nullptr, 8));
    } else if (what == "link") {
      EXPECT_TRUE(std::filesystem::is_symlink(dir + name));
    } else {
      ADD_FAILURE() << "unknown step";
    }
  }
  if (adb != nullptr) {  // never leave an adb server running
    ChildOptions plain;
    plain.built = false;
    RunChild({"adb", "-P", std::to_string(adb->port()), "kill-server"}, plain);
  }
}

INSTANTIATE_TEST_SUITE_P(Tool, Tool, ::testing::ValuesIn(Cases()),
                         [](const auto& info) { return info.param.name; });

}  // namespace
