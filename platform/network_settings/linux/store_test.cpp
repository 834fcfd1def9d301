#include "platform/network_settings/linux/store.h"

#include <gmock/gmock.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <boost/json.hpp>
#include <map>
#include <thread>

#include "tests/support/eventually.h"
#include "tests/support/linux/signed_files.h"
#include "tests/support/this_machine.h"

namespace platform {
namespace {

namespace json = boost::json;
namespace fs = std::filesystem;

class PreferencesStoreTest : public testing::Test {
 protected:
  PreferencesStore open() const { return PreferencesStore::open(folder).value(); }

  /// A session, from lock() to unlock().
  Result<void> tryToChange(const std::string& path, const json::value& value) const {
    return attempt([&] {
      auto store = PreferencesStore::open(folder).value();
      store.lock(true).value();
      store.set(path, value).value();
      store.commit().value();
      store.unlock();
    });
  }
  void change(const std::string& path, const json::value& value) const { tryToChange(path, value).value(); }

  /// The error of a session that tries to change the store.
  std::string refusal() const { return tryToChange("/NetworkServices/A/Proxies", "changed").error().what(); }

  std::string content() const { return test::readFile(file); }

  mode_t mode(const std::string& path) const {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode;
  }

  test::TemporaryFolder outer;
  std::string folder = outer / "store", file = folder + "/preferences.json", lockFile = folder + "/preferences.lock";
};

TEST_F(PreferencesStoreTest, BelongsToItsUserAloneAndKeepsValuesUnchanged) {
  mode_t before = umask(0100);
  auto value = json::parse(R"({"int":-1,"large":18446744073709551615,"real":1.0,"half":0.5,"true":true,"null":null,
                               "text":"é\u0000\"","list":[[],{}]})");
  value.get_object()["long"] = 1.3927926388013963E-143;  // Boost 1.81 itself would misread it
  change("/NetworkServices/A/Proxies", value);
  change("/NetworkServices/A/IPv4", "second");
  change("/NetworkServices//Proxies", 3);
  umask(before);
  const json::object services{{"A", {{"Proxies", value}, {"IPv4", "second"}}}, {"", {{"Proxies", 3}}}};
  EXPECT_EQ(mode(folder), S_IFDIR | 0700u);
  EXPECT_EQ(mode(file), S_IFREG | 0600u);
  EXPECT_EQ(mode(lockFile), S_IFREG | 0600u);
  auto shared = PrivateFolder::open(outer / "shared", PrivateFolder::Readers::everybody).value();
  shared.replace("file", "text").value();
  EXPECT_EQ(mode(outer / "shared/file"), S_IFREG | 0644u);
  EXPECT_EQ(mode(outer / "shared"), S_IFDIR | 0755u);
  shared.link("file", "second").value();
  fs::create_symlink("second", outer / "shared/link");
  EXPECT_EQ(shared.openToWrite("link").error().number, ELOOP);
  shared.link("file", "second").value();  // replaces the existing name
  shared.remove("file").value();
  EXPECT_EQ(shared.read("second").value()->text, "text");
  EXPECT_FALSE(shared.read("file").value());
  EXPECT_FALSE(shared.openToWrite("file").value());
  EXPECT_EQ(fcntl(shared.openToWrite("second").value().get(), F_GETFD), FD_CLOEXEC);
  EXPECT_TRUE(shared.replace("full", std::string(PrivateFolder::maximumSize, 'x')));
  EXPECT_EQ(shared.read("full").value()->text.size(), PrivateFolder::maximumSize);
  EXPECT_EQ(shared.replace("full", std::string(PrivateFolder::maximumSize + 1, 'x')).error().number, EFBIG);
  ASSERT_EQ(mkfifo((outer / "shared/fifo").c_str(), 0644), 0);
  EXPECT_EQ(shared.openToWrite("fifo").error().number, ENXIO);

  auto store = open();
  EXPECT_EQ(*store.find("/NetworkServices").value(), json::value(services));
  EXPECT_EQ(*store.find("/NetworkServices//Proxies").value(), 3);
  EXPECT_EQ(store.find("/NetworkServices/A/IPv4/Deeper").value(), nullptr);
  store.lock(true).value();
  store.setProjectedServices({"A", "B"}).value();
  EXPECT_EQ(store.projectedServices().size(), 2u);
  store.unlock();
  auto second = open();
  second.lock(true).value();
  EXPECT_EQ(second.projectedServices(), (std::set<std::string>{"A", "B"}));
}

TEST_F(PreferencesStoreTest, InvalidPathsAndValuesAreRefused) {
  change("/NetworkServices/A/Proxies", json::object{{"HTTPPort", 1}});
  const auto before = content();
  const double infinity = std::numeric_limits<double>::infinity();
  std::string deep;
  for (int i = 0; i < 65; ++i) deep += "/x";
  for (const auto& path : {deep.c_str(), "", "relative", "/NetworkServices/A/Proxies/HTTPPort/B"}) {
    EXPECT_FALSE(tryToChange(path, 1)) << path;
  }
  for (const json::value& value : {json::value(infinity), json::value("\xFF"), json::value("\xED\xA0\x80")}) {
    EXPECT_FALSE(tryToChange("/NetworkServices/A/Proxies", value)) << value;
  }
  EXPECT_EQ(content(), before);

  // Only the invalid value is left out: others are written.
  auto store = open();
  store.lock(true).value();
  EXPECT_FALSE(store.set("/a", json::array{infinity}));
  store.set("/b", 1.5).value();
  store.commit().value();
  EXPECT_TRUE(content().ends_with(R"(,"b":1.5})")) << content();
}

TEST_F(PreferencesStoreTest, NothingIsWrittenWithoutACommitALockOrAChange) {
  auto store = open();
  store.set("/a", 1).value();
  EXPECT_FALSE(store.commit());
  store.lock(true).value();
  store.forget();
  store.commit().value();
  EXPECT_FALSE(fs::exists(file));
  EXPECT_EQ(store.find("/a").value(), nullptr);
}

TEST_F(PreferencesStoreTest, AnotherSessionsChangeIsDetected) {
  change("/a", 1);
  auto store = open();
  store.set("/b", 1).value();
  change("/a", 2);
  EXPECT_STREQ(store.lock(true).error().what(), "The network preferences have changed since they were read");
  change("/a", 3);  // the lock is free again
  store.forget();
  store.lock(true).value();
  store.set("/b", 1).value();
  store.commit().value();
  store.unlock();
  store.lock(true).value();  // the session's own change does not count
  EXPECT_EQ(open().lock(false).error().number, EWOULDBLOCK);
  EXPECT_EQ(content(), R"({"a":3,"b":1})");
  fs::remove(file);
  store.commit().value();  // everything has been written
  store.unlock();
  EXPECT_FALSE(store.lock(true));
}

TEST_F(PreferencesStoreTest, OneSessionWaitsForTheOther) {
  auto first = open();
  first.lock(true).value();
  std::thread second([&] { change("/second", 1); });
  // In /proc/locks, "->" marks a lock that a process waits for.
  auto waits = [] { return test::readFile("/proc/locks").find("-> FLOCK") != std::string::npos; };
  EXPECT_TRUE(eventually(waits));
  first.set("/first", 1).value();
  first.commit().value();
  first.unlock();
  second.join();
  EXPECT_EQ(content(), R"({"first":1,"second":1})");
}

TEST_F(PreferencesStoreTest, AStoreThatOthersCouldHaveChangedIsRefusedAndKept) {
  change("/a", 1);
  const auto before = content();
  const std::string notAlone = " does not belong to this user alone: Operation not permitted";
  for (const auto& path : {folder, file, lockFile}) {
    auto good = mode(path) & 07777u;
    for (mode_t bad : {good | S_IWOTH, good | S_IRGRP}) {
      chmod(path.c_str(), bad);
      EXPECT_EQ(refusal(), path + notAlone);
      EXPECT_EQ(mode(path) & 07777u, bad);
      chmod(path.c_str(), good);
    }
    ASSERT_EQ(chown(path.c_str(), 1000, 0), 0) << "run as root";
    EXPECT_EQ(refusal(), path + notAlone);
    ASSERT_EQ(chown(path.c_str(), 0, 0), 0);
  }
  fs::rename(folder, outer / "moved");
  fs::create_symlink(outer / "moved", folder);
  EXPECT_EQ(refusal(), folder + ": Not a directory");
  fs::remove(folder);
  fs::rename(outer / "moved", folder);
  for (const auto& [path, reason] : std::map{std::pair(file, notAlone), {lockFile, ": No such device or address"}}) {
    fs::rename(path, outer / "moved");
    fs::create_symlink(outer / "moved", path);
    EXPECT_EQ(refusal(), path + ": Too many levels of symbolic links");
    fs::remove(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(refusal(), path + reason);
    fs::remove(path);
    fs::rename(outer / "moved", path);
  }
  EXPECT_EQ(content(), before);
  EXPECT_EQ(refusal(), "");
}

TEST_F(PreferencesStoreTest, AFileThatIsNoJSONObjectIsRefusedAndKept) {
  change("/a", 1);
  for (const auto& text : {std::string(), std::string("{"), std::string("[]"), std::string("1"), std::string("{}x"),
                           std::string("{\"a\":\"\xFF\"}"), std::string(4, '\0'), std::string(2000, '[')}) {
    test::writeFile(file, text);
    EXPECT_TRUE(refusal().starts_with("preferences.json is not ")) << refusal();
    EXPECT_EQ(content(), text);
  }
  test::writeFile(file, "{]");
  EXPECT_EQ(refusal(), "preferences.json is not JSON: syntax error");
  fs::resize_file(file, PrivateFolder::maximumSize + 1);
  EXPECT_EQ(refusal(), file + ": File too large");
}

TEST_F(PreferencesStoreTest, AFullStoreCanBeEmptied) {
  const std::string proxies = "/NetworkServices/A/Proxies";
  change(proxies, json::string(PrivateFolder::maximumSize - 100, 'x'));
  const auto full = content();
  EXPECT_FALSE(tryToChange("/NetworkServices/B/Proxies", json::string(100, 'x')));
  const std::string unknown(200, 'C');  // too long to be added
  change("/NetworkServices/" + unknown + "/Proxies", json::object());
  EXPECT_EQ(content(), full);
  auto store = open();
  store.lock(true).value();
  for (const auto& service : {unknown, std::string("A")}) {
    store.set("/NetworkServices/" + service + "/Proxies", json::object()).value();
  }
  store.commit().value();
  EXPECT_EQ(content(), R"({"NetworkServices":{"A":{"Proxies":{}},")" + unknown + R"(":{"Proxies":{}}}})");
  store.unlock();
  // Empty entities make room, but what is inside others stays as it was set.
  const std::string kept = R"({"Proxies":{"X":{}},"IPv4":{"Y":{}},"Z":1})";
  change("/NetworkServices/A", json::parse(kept));
  change("/NetworkServices/" + std::string(PrivateFolder::maximumSize - 50, 'D') + "/Proxies", json::object());
  EXPECT_EQ(content(), R"({"NetworkServices":{"A":)" + kept + "}}");
}

TEST_F(PreferencesStoreTest, AFailedWriteLeavesTheOldStore) {
  change("/a", 1);
  const auto before = content();
  // A draft that cannot be created, and one that cannot be written completely.
  fs::create_directory(file + ".new");
  EXPECT_NE(refusal(), "");
  fs::remove(file + ".new");
  {
    FullDisk full;
    EXPECT_EQ(refusal(), file + ".new: File too large");
  }
  EXPECT_FALSE(fs::exists(file + ".new"));
  EXPECT_EQ(content(), before);
  EXPECT_EQ(refusal(), "");
}

// A process that changes the store is killed before and after each of its system calls in turn.
TEST_F(PreferencesStoreTest, KilledAtAnyMomentItLeavesTheOldOrTheNewStore) {
  std::map<std::string, int> found;
  for (int status = 0, kills = 0; !WIFEXITED(status) || kills == 0; ++kills) {
    ASSERT_LT(kills, 1000);
    change("/a", "old");
    pid_t child = fork();
    if (child == 0) {
      ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
      raise(SIGSTOP);
      change("/a", "new");
      _exit(0);
    }
    ASSERT_EQ(waitpid(child, &status, 0), child);
    for (int stops = 0; stops < kills && WIFSTOPPED(status); ++stops) {
      ASSERT_EQ(ptrace(PTRACE_SYSCALL, child, nullptr, nullptr), 0);
      ASSERT_EQ(waitpid(child, &status, 0), child);
    }
    if (WIFSTOPPED(status)) {
      // No program that is started at this moment may inherit a descriptor and, with it, the lock.
      for (const auto& entry : fs::directory_iterator(fmt::format("/proc/{}/fd", child))) {
        if (!fs::read_symlink(entry).string().starts_with(folder)) continue;
        auto info = test::readFile(fmt::format("/proc/{}/fdinfo/{}", child, entry.path().filename().string()));
        EXPECT_TRUE(std::stoi(info.substr(info.find("flags:") + 6), nullptr, 8) & O_CLOEXEC) << info;
      }
      kill(child, SIGKILL);
      ASSERT_EQ(waitpid(child, &status, 0), child);
    }
    ++found[content()];
  }
  EXPECT_THAT(found, testing::UnorderedElementsAre(testing::Pair(R"({"a":"old"})", testing::Gt(10)),
                                                   testing::Pair(R"({"a":"new"})", testing::Gt(2))));
  EXPECT_EQ(refusal(), "");
}

}  // namespace
}  // namespace platform
