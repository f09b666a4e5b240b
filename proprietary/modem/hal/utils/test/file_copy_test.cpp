// The file copy: chunks, short and failed writes, and each refusal.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "kovani_utils.h"
#include "support.h"

namespace {

using namespace kovani_test;

long OpenDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

TEST(FileCopy, copies) {
  const TempDir dir;
  const std::string chunk(10240, 'c');
  const struct {
    const char* name;
    std::string src;
    const char* tgt;  // what the target held before; null: no target
    std::vector<long> writes;
    int result;
    std::string copied;
  } rows[] = {
      {"empty", "", nullptr, {}, 0, ""},
      {"empty_over", "", "keep", {}, 0, "keep"},
      {"one_chunk", chunk, nullptr, {}, 0, chunk},
      {"two_chunks", chunk + "d", nullptr, {}, 0, chunk + "d"},
      {"over_longer", "12345", "abcdefghijklmnopqrst", {}, 0, "12345fghijklmnopqrst"},
      {"short_write", "0123456789", nullptr, {4, 6}, 0, "0123456789"},
      {"zero_write", "0123456789", nullptr, {0}, 0, ""},
      {"failed_write", "0123456789", nullptr, {4, -1}, -5, "0123"},
  };
  const mode_t umask_before = umask(0);
  Capture capture;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string src = dir / row.name + ".s", tgt = dir / row.name + ".t";
    dir.Write(row.name + std::string(".s"), row.src);
    if (row.tgt != nullptr) dir.Write(row.name + std::string(".t"), row.tgt);
    LimitFileWrites(row.writes);
    EXPECT_EQ(row.result, kovani_copy_file(src.c_str(), tgt.c_str()));
    LimitFileWrites({});
    EXPECT_EQ(row.copied, ReadFile(tgt));
  }
  struct stat st = {};
  EXPECT_EQ(0, stat((dir / "empty.t").c_str(), &st));
  EXPECT_EQ(0777u, st.st_mode & 07777);
  umask(umask_before);
  EXPECT_EQ(-1, kovani_copy_file(nullptr, "x"));
  EXPECT_EQ(-2, kovani_copy_file("x", nullptr));
  EXPECT_EQ(-3, kovani_copy_file((dir / "missing").c_str(), (dir / "t").c_str()));
  const long descriptors = OpenDescriptors();
  EXPECT_EQ(-4, kovani_copy_file((dir / "empty.s").c_str(), (dir / "no/t").c_str()));
  EXPECT_EQ(descriptors, OpenDescriptors());
  EXPECT_EQ(-5, kovani_copy_file(dir.path.c_str(), (dir / "from_dir").c_str()));
  EXPECT_EQ(descriptors, OpenDescriptors());
  ExpectLog(capture, "file_copy/copies", {{"DIR", dir.path}});
}

}  // namespace
