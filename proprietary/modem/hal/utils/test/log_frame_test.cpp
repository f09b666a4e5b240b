#include <sys/prctl.h>

#include <atomic>
#include <set>
#include <thread>

#include "fake_proc.h"
#include "library_test.h"

namespace {

using namespace kovani_test;

TEST(LogFrame, Globals_StartAtTheirInitialValues) {
  InFreshProcess("globals", [] {
    EXPECT_EQ(g_kovani_shell_print_flag, 1);
    EXPECT_EQ(g_kovani_qcril_ril_process_instance_id, 255);
  });
}

// While the process renames itself, lines logged at instance 255 carry the
// old or the new name, never a mixture or a name mid-rewrite.
TEST(LogFrame, TaskNamePrefix_NeverTornByARename) {
  InFreshProcess("rename", [] {
    g_kovani_qcril_ril_process_instance_id = 255;
    const std::set<std::string> names = {"[" + OwnTaskName() + "]", "[kovani-aaaaaaa]",
                                         "[kovani-bbbbbbb]"};
    std::atomic<bool> stop{false};
    SyslogCapture syslog;
    ConsoleCapture console;
    std::vector<std::thread> loggers;
    for (int t = 0; t < 3; ++t) {
      loggers.emplace_back([&stop] {
        while (!stop) kovani_str_trim(nullptr, 7);
      });
    }
    for (int i = 0; i < 300; ++i) {
      prctl(PR_SET_NAME, i % 2 == 0 ? "kovani-aaaaaaa" : "kovani-bbbbbbb");
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    stop = true;
    for (auto& logger : loggers) logger.join();
    console.Stop();
    std::set<std::string> seen;
    for (const SyslogLine& line : syslog.lines()) {
      seen.insert(line.prefix);
      EXPECT_EQ(names.count(line.prefix), 1u) << line.text;
    }
    EXPECT_GE(seen.size(), 2u);
  });
}

}  // namespace
