// A small application. It sets proxies while it runs, finds the program behind each connection from several threads, is
// relaunched when it dies, and cleans up when it is asked to end.
//
// usage: Example SERVICE-ID HOST PORT
#include <arpa/inet.h>
#include <brimo/HelperClient.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Settings {
  std::string service;
  brimo::ProxyServer proxy;
};

/// The helper relaunches an application with a single argument, the reason. The application must store its own
/// settings.
std::string settingsFile() {
  const char* home = std::getenv("HOME");
  return std::string(home ? home : "/tmp") + "/.brimo-example";
}

bool readSettings(Settings& settings) {
  std::ifstream file(settingsFile());
  return static_cast<bool>(file >> settings.service >> settings.proxy.host >> settings.proxy.port);
}

void say(const std::string& text) {
  static std::mutex mutex;
  std::lock_guard<std::mutex> lock(mutex);
  std::cout << text << std::endl;
}

/// Called for every new connection. The helper has undone earlier settings, so this sets them again.
void setUp(brimo::HelperClient& helper, const Settings& settings) {
  brimo::Proxies proxies;
  proxies.http = proxies.https = settings.proxy;
  proxies.exceptions = {"localhost", "127.0.0.0/8", "*.local"};
  helper.send(brimo::setProxies({{settings.service, proxies}}, brimo::ProxyLifetime::untilAClientLeaves),
              [](const brimo::Result<brimo::Done>& done) { say(done ? "proxies set" : done.error().message); });
  helper.send(brimo::startWatchdog(),
              [](const brimo::Result<brimo::Done>& done) { say(done ? "watched" : done.error().message); });
}

/// A proxy does this for each connection that it accepts. Here, the socket is a listener of this process itself.
void lookUpOwner(brimo::HelperClient& helper) {
  int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(listener, generic, length) == 0 && listen(listener, 1) == 0 &&
      getsockname(listener, generic, &length) == 0) {
    // A short limit: the proxy continues without the owner.
    auto owner = helper.call(brimo::processLookup(brimo::Transport::tcp, *brimo::socketAddress(generic)),
                             std::chrono::seconds(5));
    if (!owner) say(owner.error().message);
    if (owner) say(*owner && (*owner)->pid == getpid() ? "owner found" : "owner not found");
  }
  close(listener);
}

void cleanUp(brimo::HelperClient& helper, const Settings& settings) {
  helper.call(brimo::stopWatchdog());
  helper.call(brimo::setProxies({{settings.service, {}}}, brimo::ProxyLifetime::untilAClientLeaves));
  say("cleaned up");
}

}  // namespace

int main(int count, char** arguments) {
  const std::string first = count > 1 ? arguments[1] : "";
  Settings settings;
  if (first == "-crashWatchDog" || first == "-crashDefunctRestart") {
    if (!readSettings(settings)) return EXIT_FAILURE;
    say("started again (" + first + ")");
  } else if (count == 4) {
    settings = {first, {arguments[2], static_cast<std::uint16_t>(std::atoi(arguments[3]))}};
    std::ofstream(settingsFile()) << settings.service << ' ' << settings.proxy.host << ' ' << settings.proxy.port
                                  << '\n';
  } else {
    std::cerr << "usage: Example SERVICE-ID HOST PORT\n";
    return 2;
  }

  // Blocked before any thread starts, so that only sigwait() receives the signals.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  brimo::HelperClient* client = nullptr;
  brimo::Options options;
  options.onConnection = [&](const brimo::ConnectionChange& change) {
    if (change.error) return say(change.error->message);
    say("connected to build " + std::to_string(*change.build));
    setUp(*client, settings);
  };
  brimo::HelperClient helper(options);
  client = &helper;
  helper.connect();

  std::vector<std::thread> threads;
  for (int number = 0; number < 4; ++number) threads.emplace_back([&] { lookUpOwner(helper); });
  for (auto& thread : threads) thread.join();

  int signal = 0;
  sigwait(&signals, &signal);
  cleanUp(helper, settings);
}
