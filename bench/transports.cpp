// Baselines for the round trip of "version": the same messages between two processes, over a SOCK_SEQPACKET pair and
// through a dbus-daemon. The other side sends a fixed answer; it parses no JSON and logs nothing. Prints the median in
// microseconds.
#include <fmt/format.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string_view>

#include "bench/measure.h"
#include "build_constants.h"
#include "platform/ipc/linux/frames.h"

namespace ipc = platform::ipc;

namespace {

constexpr std::string_view request = R"({"command":"version"})";
const std::string reply = fmt::format(R"({{"version":{}}})", BRHBuildNumber);

void require(bool fine, const char* what) {
  if (!fine) throw std::runtime_error(what);
}

/// A process that runs `serve`, killed by the destructor.
class Server {
 public:
  explicit Server(const std::function<void()>& serve) : pid_(fork()) {
    require(pid_ >= 0, "cannot fork");
    if (pid_ > 0) return;
    serve();
    _exit(0);
  }
  ~Server() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

 private:
  pid_t pid_;
};

double pingPong(int count) {
  std::array<int, 2> ends;
  require(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends.data()) == 0, "socketpair");
  auto frame = [](std::string_view json) {
    return *ipc::encodeFrame({1, {{"json", ipc::Data(json.begin(), json.end())}}});
  };
  auto sent = frame(request), answered = frame(reply);
  std::array<char, 4096> buffer;
  Server server([&] {
    while (recv(ends[1], buffer.data(), buffer.size(), 0) > 0) send(ends[1], answered.data(), answered.size(), 0);
  });
  return bench::medianMicroseconds(count, [&] {
    send(ends[0], sent.data(), sent.size(), 0);
    require(recv(ends[0], buffer.data(), buffer.size(), 0) == static_cast<ssize_t>(answered.size()), "recv");
  });
}

// The dictionary {"json": data} in D-Bus: a{sv} with a value of type ay.
void append(sd_bus_message* message, std::string_view json) {
  require(sd_bus_message_open_container(message, 'a', "{sv}") >= 0 &&
              sd_bus_message_open_container(message, 'e', "sv") >= 0 &&
              sd_bus_message_append(message, "s", "json") >= 0 &&
              sd_bus_message_open_container(message, 'v', "ay") >= 0 &&
              sd_bus_message_append_array(message, 'y', json.data(), json.size()) >= 0 &&
              sd_bus_message_close_container(message) >= 0 && sd_bus_message_close_container(message) >= 0 &&
              sd_bus_message_close_container(message) >= 0,
          "cannot append to a D-Bus message");
}

void expect(sd_bus_message* message, std::string_view json) {
  const char* key = nullptr;
  const void* data = nullptr;
  std::size_t size = 0;
  require(sd_bus_message_enter_container(message, 'a', "{sv}") >= 0 &&
              sd_bus_message_enter_container(message, 'e', "sv") >= 0 && sd_bus_message_read(message, "s", &key) >= 0 &&
              sd_bus_message_enter_container(message, 'v', "ay") >= 0 &&
              sd_bus_message_read_array(message, 'y', &data, &size) >= 0 &&
              std::string_view(static_cast<const char*>(data), size) == json,
          "not the expected D-Bus message");
}

sd_bus* connectBus(const char* address) {
  sd_bus* bus = nullptr;
  require(sd_bus_new(&bus) >= 0 && sd_bus_set_address(bus, address) >= 0 && sd_bus_set_bus_client(bus, 1) >= 0 &&
              sd_bus_start(bus) >= 0,
          "cannot connect to the bus");
  return bus;
}

int answer(sd_bus_message* call, void*, sd_bus_error*) {
  expect(call, request);
  sd_bus_message* message = nullptr;
  require(sd_bus_message_new_method_return(call, &message) >= 0, "no D-Bus reply");
  append(message, reply);
  int status = sd_bus_send(nullptr, message, nullptr);
  sd_bus_message_unref(message);
  return status < 0 ? status : 1;
}

double throughDaemon(const char* address, int count) {
  std::array<int, 2> ready;
  require(pipe(ready.data()) == 0, "pipe");
  Server server([&] {
    auto* bus = connectBus(address);
    require(sd_bus_request_name(bus, HelperServiceName, 0) >= 0 &&
                sd_bus_add_object(bus, nullptr, "/helper", answer, nullptr) >= 0 && write(ready[1], "r", 1) == 1,
            "cannot serve on the bus");
    while (true) {
      if (sd_bus_process(bus, nullptr) == 0) sd_bus_wait(bus, UINT64_MAX);
    }
  });
  close(ready[1]);
  char byte;
  require(read(ready[0], &byte, 1) == 1, "the server on the bus has ended");
  auto* bus = connectBus(address);
  return bench::medianMicroseconds(count, [&] {
    sd_bus_message *call = nullptr, *result = nullptr;
    require(sd_bus_message_new_method_call(bus, &call, HelperServiceName, "/helper", HelperServiceName, "Call") >= 0,
            "no D-Bus call");
    append(call, request);
    require(sd_bus_call(bus, call, 0, nullptr, &result) >= 0, "D-Bus call failed");
    expect(result, reply);
    sd_bus_message_unref(call);
    sd_bus_message_unref(result);
  });
}

}  // namespace

int main(int count, char** values) try {
  std::string what = count >= 3 ? values[1] : "";
  require((what == "seqpacket" && count == 3) || (what == "dbus" && count == 4),
          "usage: bench_transports seqpacket COUNT | dbus COUNT ADDRESS");
  int repetitions = std::atoi(values[2]);
  fmt::print("{} {}\n", what, what == "dbus" ? throughDaemon(values[3], repetitions) : pingPong(repetitions));
} catch (const std::exception& error) {
  fmt::print(stderr, "bench_transports: {}\n", error.what());
  return EXIT_FAILURE;
}
