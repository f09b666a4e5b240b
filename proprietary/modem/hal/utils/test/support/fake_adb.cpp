#include "fake_adb.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kovani_test {
namespace {

bool ReadExactly(int fd, char* buf, size_t size) {
  for (size_t done = 0; done < size;) {
    const ssize_t n = read(fd, buf + done, size - done);
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

void Send(int fd, const std::string& data) {
  for (size_t done = 0; done < data.size();) {
    const ssize_t n = write(fd, data.data() + done, data.size() - done);
    if (n <= 0) return;
    done += static_cast<size_t>(n);
  }
}

// "OKAY" or "FAIL", then the payload with its length in four hex digits.
std::string Reply(bool ok, const std::string& payload) {
  char length[5];
  snprintf(length, sizeof(length), "%04zx", payload.size());
  return (ok ? "OKAY" : "FAIL") + std::string(length) + payload;
}

}  // namespace

FakeAdbServer::FakeAdbServer(const std::string& version) : version_(version) {
  listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof(address);
  if (bind(listener_, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      listen(listener_, 8) != 0 ||
      getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    return;
  }
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] {
    for (int connection; (connection = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
      Serve(connection);
      close(connection);
    }
  });
}

FakeAdbServer::~FakeAdbServer() {
  shutdown(listener_, SHUT_RDWR);
  if (thread_.joinable()) thread_.join();
  close(listener_);
}

void FakeAdbServer::SetDevice(const std::string& serial, const std::string& state,
                              const std::string& dump) {
  std::lock_guard<std::mutex> lock(mutex_);
  devices_[serial] = {state, dump};
}

// One connection: requests until one that ends it. A transport request
// ("host:tport:serial:S") keeps the connection for the device's service.
void FakeAdbServer::Serve(int connection) {
  std::string serial;
  for (char length[5] = {0}; ReadExactly(connection, length, 4);) {
    std::string request(std::stoul(length, nullptr, 16), '\0');
    if (!ReadExactly(connection, request.data(), request.size())) return;
    std::lock_guard<std::mutex> lock(mutex_);
    if (request == "host:version") return Send(connection, Reply(true, version_));
    if (request == "host:kill") return Send(connection, "OKAY");
    if (request.size() > 9 && request.compare(request.size() - 9, 9, ":features") == 0) {
      return Send(connection, Reply(true, ""));
    }
    if (request == "host:devices") {
      std::string list;
      for (const auto& [name, device] : devices_) list += name + "\t" + device.first + "\n";
      return Send(connection, Reply(true, list));
    }
    if (request.rfind("host:tport:serial:", 0) == 0 && devices_.count(request.substr(18)) != 0) {
      serial = request.substr(18);
      Send(connection, std::string("OKAY") + std::string(8, '\1'));
      continue;
    }
    if (!serial.empty() && (request == "exec:getprop" || request == "shell:getprop")) {
      return Send(connection, "OKAY" + devices_[serial].second);
    }
    return Send(connection, Reply(false, "device not found"));
  }
}

}  // namespace kovani_test
