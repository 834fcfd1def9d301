#include "platform/application/linux/environment.h"

#include <gmock/gmock.h>

namespace platform {
namespace {

using namespace std::string_view_literals;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(ApplicationEnvironment, KeepsListedVariablesUnchanged) {
  EXPECT_THAT(applicationEnvironment("DISPLAY=:0\0LD_PRELOAD=/tmp/evil.so\0LC_ALL=de_DE.UTF-8\0XDG_SESSION_ID=2\0"
                                     "DBUS_SESSION_BUS_ADDRESS=unix:path=/run/user/1000/bus,guid=1\0HOME=\0"
                                     "SECRET=1\0PYTHONPATH=/x\0LOCPATH=/x\0GCONV_PATH=/x\0WAYLAND_SOCKET=3\0"sv),
              ElementsAre("DISPLAY=:0", "LC_ALL=de_DE.UTF-8", "XDG_SESSION_ID=2",
                          "DBUS_SESSION_BUS_ADDRESS=unix:path=/run/user/1000/bus,guid=1", "HOME="));
}

TEST(ApplicationEnvironment, NamesMustMatchWhole) {
  EXPECT_THAT(
      applicationEnvironment("DISPLAY2=x\0MYHOME=x\0home=x\0 HOME=x\0LC=x\0XDG=x\0XDG_a=x\0LC_\n=x\0=x\0HOME\0\0"sv),
      IsEmpty());
  EXPECT_THAT(applicationEnvironment("LC_=x\0XDG_=x\0"sv), ElementsAre("LC_=x", "XDG_=x"));
}

TEST(ApplicationEnvironment, OnlyTheFirstCompleteVariableOfANameCounts) {
  EXPECT_THAT(applicationEnvironment("HOME=/a\0HOME=/b\0USER=u"sv), ElementsAre("HOME=/a"));
  EXPECT_THAT(applicationEnvironment(""), IsEmpty());
  EXPECT_EQ(valueOf({"HOMES=/a", "ROOM=/b", "HOME=/c", "HOME=/d"}, "HOME"), "/c");
}

TEST(ApplicationEnvironment, IsCompletedFromTheUserDatabaseIfItHasTheUser) {
  std::vector<std::string> ofRoot{"HOME=", "SHELL=/a"}, ofUnknown;
  completeEnvironment(ofRoot, 0);
  completeEnvironment(ofUnknown, 4'294'967'294);
  EXPECT_THAT(ofRoot,
              ElementsAre("SHELL=/a", "HOME=/root", "USER=root", "LOGNAME=root", testing::StartsWith("PATH=/")));
  EXPECT_THAT(ofUnknown, ElementsAre(testing::StartsWith("PATH=/")));
}

TEST(ApplicationEnvironment, IsBounded) {
  auto variable = [](const std::string& name, std::size_t size) {
    return name + '=' + std::string(size - name.size() - 1, 'x') + '\0';
  };
  auto kept = applicationEnvironment(variable("XDG_A", 65'536) + variable("XDG_B", 7));
  ASSERT_EQ(kept.size(), 1u);
  EXPECT_EQ(kept[0].size(), 65'536u);
  EXPECT_THAT(applicationEnvironment(variable("XDG_A", 65'537) + variable("HOME", 6)), ElementsAre("HOME=x"));

  std::string many;
  for (int index = 0; index < 100'000; ++index) many += variable("XDG_" + std::to_string(index), 16);
  EXPECT_EQ(applicationEnvironment(many).size(), 65'536u / 16);
}

}  // namespace
}  // namespace platform
