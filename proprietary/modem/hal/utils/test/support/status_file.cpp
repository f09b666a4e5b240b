#include "status_file.h"

#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <mutex>

namespace kovani_test {
namespace {

std::mutex g_mutex;
bool g_active = false;
std::string g_replacement;
bool g_root_active = false;
std::string g_root;

using FopenFn = FILE* (*)(const char*, const char*);
using OpendirFn = DIR* (*)(const char*);

template <typename Fn>
Fn Real(const char* name) {
  return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

FopenFn RealFopen() {
  static const FopenFn real = Real<FopenFn>("fopen");
  return real;
}

std::string OwnStatusPath() { return "/proc/" + std::to_string(getpid()) + "/status"; }

}  // namespace

std::string OwnTaskName() {
  char name[64] = {0};
  FILE* fp = RealFopen()("/proc/self/comm", "r");
  if (fp != nullptr) {
    if (fgets(name, sizeof(name), fp) == nullptr) name[0] = '\0';
    fclose(fp);
  }
  std::string result(name);
  if (!result.empty() && result.back() == '\n') result.pop_back();
  return result;
}

StatusFileRedirect::StatusFileRedirect(const std::string& replacement) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_active = true;
  g_replacement = replacement;
}

StatusFileRedirect::~StatusFileRedirect() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_active = false;
}

FakeProcRoot::FakeProcRoot(const std::string& root) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_root_active = true;
  g_root = root;
}

FakeProcRoot::~FakeProcRoot() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_root_active = false;
}

}  // namespace kovani_test

extern "C" DIR* opendir(const char* path) {
  using namespace kovani_test;
  static const OpendirFn real = Real<OpendirFn>("opendir");
  std::string target;
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (g_root_active && strcmp(path, "/proc") == 0) {
      if (g_root.empty()) {
        errno = ENOENT;
        return nullptr;
      }
      target = g_root;
    }
  }
  return real(target.empty() ? path : target.c_str());
}

extern "C" FILE* fopen(const char* path, const char* mode) {
  using namespace kovani_test;
  std::string target;
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (g_active && path != nullptr && OwnStatusPath() == path) {
      if (g_replacement.empty()) {
        errno = ENOENT;
        return nullptr;
      }
      target = g_replacement;
    } else if (g_root_active && path != nullptr && strncmp(path, "/proc/", 6) == 0) {
      target = g_root + (path + 5);
    }
  }
  return RealFopen()(target.empty() ? path : target.c_str(), mode);
}
