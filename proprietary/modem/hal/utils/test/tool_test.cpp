// The kovani-utils tool, run as engineers run it: each case a shell command
// in a folder of its own, with what it must exit with and print.
#include <gtest/gtest.h>

#include "support.h"

namespace {

using namespace kovani_test;

struct Case {
  const char* name;
  std::string command;  // TOOL stands for the tool, run where the case's files are
  int status;
  std::vector<std::string> out, err;  // texts each must contain; "=" first: all of it
};
void PrintTo(const Case& row, std::ostream* os) { *os << row.name; }

// A stand-in adb: "adb devices" lists $DEVICES ("serial:state ..."), and
// "adb -s SERIAL exec-out getprop" prints the dump of a certification build.
const char kFakeAdb[] =
    "printf '#!/bin/sh\\ncase \"$1\" in devices) echo \"List of devices attached\"; for d in "
    "$DEVICES; do "
    "printf \"%%s\\\\t%%s\\\\n\" \"${d%%%%:*}\" \"${d#*:}\"; done;; -s) cat " KOVANI_TEST_INPUTS
    "/kestrel_cert.getprop;; esac\\n' >adb && chmod +x adb && export PATH=$PWD:$PATH; ";

// clang-format off
const Case kCases[] = {
    {"info_on_the_sample", "TOOL info", 0,
     {"sample_device.prop (built-in sample)\n", "build type:          4 KOVANI_BUILD_TYPE_STABLE\n",
      "SSR type:            0 MODEM_RESTART_LEVEL_ID_DEF (no default was saved: this level is now the default, in memory)\n",
      "  kovani_is_stable_version      true\n"}, {", skipped 0 lines\n"}},
    {"json", "TOOL info --json", 0,
     {"\"schema\": 1,", "\"tool_version\": \"1.0.0\"", "\"build_type\": 4,", "\"build_type_name\": \"KOVANI_BUILD_TYPE_STABLE\"",
      "\"kovani_is_mp_version\": true", "\"device_name\": \"kestrel\"", "\"vendor_build_region_configured\": true",
      "\"single_sim\": false", "\"ssr_level\": \"ALL_ENABLE\"", "\"ssr_default_saved_now\": true"}, {}},
    {"version", "TOOL --version", 0, {"=kovani-utils 1.0.0\n"}, {}},
    {"trace_on_stderr", "TOOL info --json --trace", 0, {"\"schema\": 1"},
     {"syslog 7: rild print is started\n", "kovani_build_type_get: KOVANI_BUILD_TYPE_STABLE(4), BUILD_PROFILE(kestrel-stable)",
      "RIL[kovani_is_stable_version:"}},
    {"layers_and_single_properties",
     "printf 'ro.product.device=falcon\\nro.vendor.radio.build_profile=k-pre\\n' >a.prop; "
     "printf '[ro.product.device]: [kestrel]\\n[persist.x]: [1\\n2]\\n' >b.getprop; "
     "TOOL info --json --props a.prop --props b.getprop --setprop ro.cust.test=ct --setprop persist.vendor.radio.build_region=eea", 0,
     {"\"device_name\": \"kestrel\"", "\"build_type\": 3,", "\"vendor_build_region\": \"eea\""},
     {"loaded 2 properties from a.prop, skipped 0 lines\n", "loaded 2 properties from b.getprop, skipped 0 lines\n"}},
    {"standard_input", "echo '[ro.build.version.incremental]: [V1.DEV]' | TOOL info --json --props -", 0,
     {"\"build_type\": 6,", "\"profile\": \"standard input\""}, {"loaded 1 properties from standard input, skipped 0 lines\n"}},
    {"ten_warnings_then_a_count", "(echo ro.product.device=k; for i in $(seq 150); do echo bad; done) >p; TOOL info --props p", 0,
     {}, {"p:11: missing '='", "kovani-utils: 140 more bad lines not shown\n", "loaded 1 properties from p, skipped 150 lines\n"}},
    {"no_property", ": >empty; TOOL info --props empty", 1, {"="}, {"kovani-utils: no property in 'empty'\n"}},
    {"nul_in_a_value", "printf 'ro.product.device=kes\\0trel\\nro.cust.test=ct\\n' >p; TOOL info --json --props p", 0,
     {"\"device_name\": \"\""}, {"p:1: contains a NUL byte"}},
    {"missing_profile", "TOOL info --props missing", 1, {}, {"kovani-utils: cannot read profile 'missing': No such file or directory\n"}},
    {"fifo_profile", "mkfifo f; TOOL info --props f", 1, {}, {"cannot read profile 'f': not a regular file"}},
    {"usage_errors", "TOOL info --props ''; echo $?; TOOL bogus; echo $?; TOOL; echo $?; TOOL ssr set sideways; echo $?; "
     "TOOL ssr set dump --device; echo $?; TOOL info --setprop novalue; echo $?; TOOL info --setprop bad..name=1", 2,
     {"=2\n2\n2\n2\n2\n2\n"}, {"FILE is empty", "bogus", "a command is required", "NAME=VALUE", "invalid property name"}},
    {"closed_and_full_stdout", "TOOL info >&-; echo $?; TOOL info >/dev/full", 1, {"=1\n"},
     {"kovani-utils: cannot write standard output: Bad file descriptor\n", "No space left on device"}},
    {"invalid_utf8_in_json", "echo ro.cust.test=ct >\"$(printf 'p\\377')\"; TOOL info --json --props \"$(printf 'p\\377')\"", 0,
     {"p\xef\xbf\xbd", "\"build_type\": 3,"}, {}},
    {"persistence_across_runs",
     "echo persist.vendor.ssr.restart_level=ALL_DISABLE >p; TOOL ssr set ssr --json --props p --persist S; "
     "TOOL ssr set dump --props p --persist S; TOOL ssr get --props p --persist S", 0,
     {"\"result\": 1,", "\"ssr_level\": \"ALL_ENABLE\"", "\"saved_default\": \"ALL_ENABLE\"",
      "result:        1 (level written)\nSSR level:     ALL_DISABLE\nsaved default: \"ALL_ENABLE\"\n",
      "SSR type:      2 MODEM_RESTART_LEVEL_ID_DUMP\nSSR level:     ALL_DISABLE\nsaved default: \"ALL_ENABLE\"\n"}, {}},
    {"persistence_failed_write",
     "TOOL ssr set dump --persist /missing/S; echo persist.vendor.ssr.restart_level=ALL_ENABLE >S; chmod 444 S; "
     "TOOL ssr set dump --persist S; s=$?; cat S; exit $s", 1, {"=persist.vendor.ssr.restart_level=ALL_ENABLE\n"},
     {"kovani-utils: cannot write '/missing/S': No such file or directory\n", "kovani-utils: cannot write 'S': "}},
    {"persistence_keeps_lines_mode_and_link",
     "printf '# notes\\ngarbage\\npersist.x=1\\n' >T; chmod 640 T; ln -s T S; TOOL ssr set dump --persist S; "
     "cat T; stat -c %a T; test -L S && echo link", 0,
     {"# notes\ngarbage\npersist.x=1\npersist.vendor.ssr.restart_level=ALL_DISABLE\n", "640\nlink\n"}, {"line kept as it is"}},
    {"persistence_locked_by_another_process", "echo persist.x=1 >S; exec 9<S; flock 9; KOVANI_PROPERTY_LOCK_TIMEOUT=2 TOOL ssr get --persist S",
     1, {}, {"kovani-utils: S: locked by another process; waiting up to 2 s\n", "cannot use persistence file 'S': still locked by another process after 2 s\n"}},
    {"persistence_refuses_a_foreign_file", "printf 'hello\\nro.x=1\\n' >G; TOOL ssr get --persist G; s=$?; cat G; exit $s", 1,
     {"=hello\nro.x=1\n"}, {"cannot use persistence file 'G': does not look like a persistence file"}},
    {"device", std::string(kFakeAdb) + "DEVICES=SER1:device TOOL info --json --device", 0,
     {"\"device_name\": \"kestrel\"", "\"profile\": \"adb:SER1\"", "\"build_type\": 3,"},
     {"loaded 24 properties from adb:SER1, skipped 0 lines\n"}},
    {"device_choice",
     std::string(kFakeAdb) + "export DEVICES='A:device B:unauthorized'; TOOL info --device; TOOL ssr get --json --device A; "
     "TOOL info --device B; TOOL info --device C", 1, {"\"ssr_level\": \"ALL_ENABLE\""},
     {"several devices connected (A, B); name one with --device SERIAL\n", "device 'B' is unauthorized, not ready",
      "device 'C' is not connected"}},
    {"no_device_or_adb", std::string(kFakeAdb) + "TOOL info --device; PATH=/none TOOL info --device", 1, {},
     {"kovani-utils: no device connected (adb devices lists none)\n", "adb not found on PATH"}},
};
// clang-format on

class Tool : public ::testing::TestWithParam<Case> {};

TEST_P(Tool, runs) {
  const Case& c = GetParam();
  const TempDir dir;
  std::string command = "cd " + dir.path + " && " + c.command;
  for (size_t at; (at = command.find("TOOL")) != std::string::npos;)
    command.replace(at, 4, Program(KOVANI_TOOL));
  const ChildRun run = Shell("unset KOVANI_PROPERTY_PROFILE KOVANI_PROPERTY_PERSIST\n" + command);
  EXPECT_EQ(c.status, run.status) << run.err;
  for (const auto& [texts, output] : {std::pair{&c.out, &run.out}, {&c.err, &run.err}}) {
    for (const std::string& text : *texts) {
      const bool whole = text[0] == '=';
      EXPECT_TRUE(whole ? *output == text.substr(1) : output->find(text) != std::string::npos)
          << "expected " << (whole ? "" : "to contain ") << text << "\ngot:\n"
          << *output;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, Tool, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
