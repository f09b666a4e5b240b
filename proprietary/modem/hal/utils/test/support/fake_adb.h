// A stand-in adb server for the tool's tests: it listens on a private
// loopback port and answers the real adb client's host requests with its
// devices and, for each, a getprop dump.
#ifndef KOVANI_TEST_FAKE_ADB_H
#define KOVANI_TEST_FAKE_ADB_H

#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace kovani_test {

class FakeAdbServer {
 public:
  // version: the protocol version the client expects, as four hex digits.
  explicit FakeAdbServer(const std::string& version);
  ~FakeAdbServer();
  FakeAdbServer(const FakeAdbServer&) = delete;
  FakeAdbServer& operator=(const FakeAdbServer&) = delete;

  int port() const { return port_; }
  void SetDevice(const std::string& serial, const std::string& state, const std::string& dump);

 private:
  void Serve(int connection);

  int listener_ = -1;
  int port_ = 0;
  std::string version_;
  std::mutex mutex_;
  std::map<std::string, std::pair<std::string, std::string>> devices_;  // state, dump
  std::thread thread_;
};

}  // namespace kovani_test

#endif  // KOVANI_TEST_FAKE_ADB_H
