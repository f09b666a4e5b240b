#include "status_file.h"

#include <dlfcn.h>
#include <errno.h>
#include <stdio.h>
#include <unistd.h>

#include <mutex>

namespace kovani_test {
namespace {

std::mutex g_mutex;
bool g_active = false;
std::string g_replacement;

using FopenFn = FILE* (*)(const char*, const char*);

FopenFn RealFopen() {
  static const FopenFn real = reinterpret_cast<FopenFn>(dlsym(RTLD_NEXT, "fopen"));
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

}  // namespace kovani_test

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
    }
  }
  return RealFopen()(target.empty() ? path : target.c_str(), mode);
}
