// The kovani-utils tool, run as engineers run it: each case a shell command
// in a folder of its own, with what it must exit with and print.
#include <gtest/gtest.h>

#include <algorithm>

#include "support.h"

namespace {

using namespace kovani_test;

struct Case {
  const char* name;
  // TOOL and STRESS stand for those programs, run where the case's files are;
  // IN/ and EXPECTED/ for the folders of inputs and expected outputs.
  std::string command;
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

// An adb of the case's own: the script lines that follow, up to a line "E".
const char kOwnAdb[] = "export PATH=$PWD:$PATH; cat >adb <<'E'; chmod +x adb\n#!/bin/sh\n";

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
    {"setprop_gets_the_checks_of_a_profile_line",
     "TOOL info --setprop persist.a=" + std::string(92, 'v') + "; echo $?; TOOL info --setprop \"$(printf 'persist.a=\\377')\"; "
     "echo $?; TOOL info --json --setprop persist.vendor.radio.build_region=" + std::string(91, 'v') +
     " --setprop ro.product.device=" + std::string(92, 'v'), 0,
     {"2\n2\n{\n", "\"vendor_build_region\": \"" + std::string(91, 'v') + "\""},
     {"kovani-utils: --setprop 'persist.a=" + std::string(92, 'v') + "': value of 92 or more bytes for a non-ro. property\n",
      "kovani-utils: --setprop 'persist.a=\xff': value is not valid UTF-8\n"}},
    {"setprop_wins_over_the_persistence_file",
     "printf 'persist.vendor.ssr.type_bak=FILE\\npersist.vendor.ssr.type_bak_flag=1\\n' >S; "
     "TOOL ssr get --json --persist S --setprop persist.vendor.ssr.type_bak=ARG; cat S", 0,
     {"\"saved_default\": \"ARG\"", "}\npersist.vendor.ssr.type_bak=FILE\npersist.vendor.ssr.type_bak_flag=1\n"}, {}},
    {"standard_input", "echo '[ro.build.version.incremental]: [V1.DEV]' | TOOL info --json --props -", 0,
     {"\"build_type\": 6,", "\"profile\": \"standard input\""}, {"loaded 1 properties from standard input, skipped 0 lines\n"}},
    {"standard_input_read_once",
     "echo ro.product.device=falcon >f; echo ro.product.device=kestrel | TOOL info --json --props - --props f --props -", 0,
     {"\"device_name\": \"kestrel\""},
     {"=loaded 1 properties from standard input, skipped 0 lines\nloaded 1 properties from f, skipped 0 lines\n"
      "loaded 1 properties from standard input, skipped 0 lines\n"}},
    {"ten_warnings_then_a_count", "(echo ro.product.device=k; for i in $(seq 150); do echo bad; done) >p; TOOL info --props p", 0,
     {}, {"p:11: missing '='", "kovani-utils: 140 more bad lines not shown\n", "loaded 1 properties from p, skipped 150 lines\n"}},
    {"one_file_twice_counts_its_bad_lines_once",
     "(echo ro.product.device=k; for i in $(seq 12); do echo bad; done) >p; TOOL info --props p --props ./p", 0, {},
     {"kovani-utils: 2 more bad lines not shown\n", "loaded 1 properties from ./p, skipped 12 lines\n"}},
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
    {"device_time_limit", std::string(kOwnAdb) + "sleep 9\nE\nTOOL info --device --timeout 1", 1, {},
     {"=kovani-utils: adb devices did not finish within 1 s (--timeout); stopped it\n"}},
    {"device_server_keeps_the_pipe_open",
     std::string(kFakeAdb) + "mv adb real; " + kOwnAdb + "sleep 9 & echo $! >>child\nexec \"$PWD/real\" \"$@\"\nE\n"
     "DEVICES=SER1:device TOOL info --json --device --timeout 3; s=$?; kill $(cat child); exit $s", 0,
     {"\"profile\": \"adb:SER1\""}, {}},
    {"device_bytes_escaped",
     std::string(kFakeAdb) + "export DEVICES=\"$(printf 'S\\033]0;x\\007:device B:un\\001ready')\"; TOOL info --device; "
     "TOOL info --device B; TOOL info --device \"$(printf 'S\\033]0;x\\007')\"", 0, {},
     {"several devices connected (S\\x1b]0;x\\x07, B)", "device 'B' is un\\x01ready, not ready",
      "loaded 24 properties from adb:S\\x1b]0;x\\x07, skipped 0 lines\n"}},
    {"adb_error_text_escaped", std::string(kOwnAdb) + "printf 'error: \\033[2J\\n' >&2; exit 1\nE\nTOOL info --device", 1,
     {}, {"=kovani-utils: adb devices failed: error: \\x1b[2J\n"}},
    {"bug_report_as_profile", "TOOL info --json --props IN/bugreport.txt; TOOL info --props IN/bugreport.zip; "
     "TOOL info --props - <IN/bugreport.txt", 0, {"\"build_type\": 3,", "device name:         kestrel\n"},
     {"bugreport.txt (SYSTEM PROPERTIES section):22: malformed getprop line",
      "bugreport.zip (SYSTEM PROPERTIES section of bugreport-kestrel-UP1A.231005.007-2024-11-23-08-10-00.txt), skipped 1 lines\n",
      "loaded 4 properties from standard input (SYSTEM PROPERTIES section), skipped 1 lines\n"}},
    {"bug_report_refused_or_without_properties", "sed '/SYSTEM PROPERTIES/,/duration of/d' IN/bugreport.txt >r; "
     "TOOL info --props r; TOOL info --props IN/no_report.zip; cat IN/bugreport.zip | TOOL info --props -", 1, {"="},
     {"no property in 'r (bug report without a SYSTEM PROPERTIES section)'\n",
      "no_report.zip' is a zip archive without a bug report (no bugreport-*.txt)\n",
      "kovani-utils: standard input is a zip archive: give it as a file name\n"}},
    {"log_threadtime", "cp IN/logcat_threadtime.txt . && TOOL log logcat_threadtime.txt | diff EXPECTED/log_threadtime.txt -; "
     "sed 's/$/\\r/' IN/logcat_threadtime.txt >logcat_threadtime.txt && TOOL log logcat_threadtime.txt | diff EXPECTED/log_threadtime.txt -",
     0, {"="}, {}},
    {"log_other_formats", "for f in time brief long; do TOOL log --json IN/logcat_$f.txt; done; TOOL log --json IN/syslog.txt IN/console.txt", 0,
     {"\"format\": \"logcat time\",", "\"late_ms\": 13,", "\"format\": \"logcat brief\",", "\"outcome\": \"pending\",",
      "\"format\": \"logcat long\",", "\"late_ms\": 16,", "\"format\": \"syslog\",", "\"late_ms\": 19,",
      "\"format\": \"console\",", "\"decoded\": \"system_log\",\n    \"other_form_lines\": 4,"}, {}},
    {"log_bug_report_system_log_only", "TOOL log --json IN/bugreport.txt IN/bugreport.zip", 0,
     {"\"entry\": \"bugreport-kestrel-UP1A.231005.007-2024-11-23-08-10-00.txt\",", "\"lines\": 6,", "\"late_ms\": 5,"}, {}},
    {"log_console_and_standard_input", "TOOL log --json - <IN/console.txt", 0,
     {"\"name\": \"standard input\",", "\"decoded\": \"console\",", "\"stopped\": \"during_sleep\","}, {}},
    {"log_device", std::string(kOwnAdb) + "echo \"$*\" >args; cat IN/logcat_time.txt\nE\nTOOL log --device SER && cat args", 0,
     {"  source         adb:SER: logcat time, 3 library lines\n", "\n-s SER logcat -d\n"}, {}},
    {"log_device_time_limit", std::string(kOwnAdb) + "sleep 9\nE\nTOOL log --device --timeout 1", 1, {},
     {"=kovani-utils: cannot read the device's log: adb logcat -d did not finish within 1 s (--timeout); stopped it\n"}},
    {"log_failures", "TOOL log IN/kestrel_cert.getprop; echo $?; TOOL log missing; echo $?; TOOL log IN/no_report.zip; echo $?; "
     "TOOL log; echo $?; TOOL log f --device", 2, {"=1\n1\n1\n2\n"},
     {"no line of libkovani_utils found; looked for logcat threadtime, time, brief", "cannot read 'missing': No such file or directory\n",
      "no_report.zip' is a zip archive without a bug report", "give a log FILE, - for standard input, or --device", "excludes"}},
    // What the library logged, decoded, against what its run counted.
    {"log_round_trip", "STRESS 1 log 2>&1 >/dev/null | sed 1d | sort >want; TOOL log --json log | awk -F'\"' "
     "'/\"outcome\"/{n[$4]++} /\"function\"/{f=$4} /\"count\"/{split($0,c,\": \"); n[f]+=c[2]} END{for(k in n)print k,n[k]}' "
     "| sort | diff want -", 0, {"="}, {}},
};
// clang-format on

class Tool : public ::testing::TestWithParam<Case> {};

TEST_P(Tool, runs) {
  const Case& c = GetParam();
  const TempDir dir;
  const std::pair<std::string, std::string> kWords[] = {{"TOOL", Program(KOVANI_TOOL)},
                                                        {"STRESS", Program(KOVANI_STRESS)},
                                                        {"IN/", KOVANI_TEST_INPUTS "/"},
                                                        {"EXPECTED/", KOVANI_TEST_EXPECTED "/"}};
  // One pass over the case's own text: a random folder name or a path put in
  // for one word may itself hold another word.
  std::string command = "cd " + dir.path + " && ";
  for (size_t at = 0; at < c.command.size();) {
    const auto word = std::find_if(std::begin(kWords), std::end(kWords), [&](const auto& w) {
      return c.command.compare(at, w.first.size(), w.first) == 0;
    });
    if (word == std::end(kWords)) {
      command += c.command[at++];
    } else {
      command += word->second;
      at += word->first.size();
    }
  }
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
