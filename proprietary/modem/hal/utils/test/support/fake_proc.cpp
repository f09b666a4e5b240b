#include "fake_proc.h"

#include <dirent.h>
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

#include <mutex>

namespace kovani_test {
namespace {

std::mutex g_mutex;
std::string g_root;  // empty: the real /proc

template <typename Fn>
Fn Real(const char* name) {
  return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

// The folder that stands for path, or "" for the real one.
std::string Mapped(const char* path) {
  std::lock_guard<std::mutex> lock(g_mutex);
  if (g_root.empty() || path == nullptr || strncmp(path, "/proc", 5) != 0) return "";
  if (path[5] == '\0') return g_root;
  return path[5] == '/' ? g_root + (path + 5) : "";
}

FILE* RealFopen(const char* path, const char* mode) {
  static const auto real = Real<FILE* (*)(const char*, const char*)>("fopen");
  return real(path, mode);
}

}  // namespace

FakeProc::FakeProc(const std::string& root) {
  std::lock_guard<std::mutex> lock(g_mutex);
  previous_ = g_root;
  g_root = root;
}

FakeProc::~FakeProc() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_root = previous_;
}

std::string OwnTaskName() {
  char name[64] = {0};
  FILE* fp = RealFopen("/proc/self/comm", "r");
  if (fp != nullptr) {
    if (fgets(name, sizeof(name), fp) == nullptr) name[0] = '\0';
    fclose(fp);
  }
  return std::string(name, strcspn(name, "\n"));
}

}  // namespace kovani_test

extern "C" DIR* opendir(const char* path) {
  static const auto real = kovani_test::Real<DIR* (*)(const char*)>("opendir");
  const std::string mapped = kovani_test::Mapped(path);
  return real(mapped.empty() ? path : mapped.c_str());
}

extern "C" FILE* fopen(const char* path, const char* mode) {
  const std::string mapped = kovani_test::Mapped(path);
  return kovani_test::RealFopen(mapped.empty() ? path : mapped.c_str(), mode);
}
