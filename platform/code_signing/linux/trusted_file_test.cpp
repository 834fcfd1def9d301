#include "platform/code_signing/linux/trusted_file.h"

#include <sys/stat.h>

#include <cerrno>

#include "tests/support/linux/signed_files.h"

namespace platform {
namespace {

/// Files in a folder that only root may write, like all folders above it. Needs root, as the helper does.
class TrustedFileTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(geteuid(), 0u) << "run as root";
    std::filesystem::create_directory(folder / "inner");
    test::writeFile(file, "content");
  }

  int openError(const std::string& path) {
    errno = 0;
    return openTrustedFile(path).error().number;
  }

  test::TemporaryFolder folder{std::filesystem::path("/opt")};
  std::string file = folder / "inner/file";
};

TEST_F(TrustedFileTest, OpensWhatOnlyRootCanChange) {
  EXPECT_EQ(fcntl(openTrustedFile(file).value().get(), F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(openError(folder / "inner/../inner//./file"), 0);
  EXPECT_EQ(openError(folder / "inner/none"), ENOENT);
  EXPECT_EQ(openError("relative"), EINVAL);
  EXPECT_EQ(openError(std::string(4095 - file.size(), '/') + file), 0);
  EXPECT_EQ(openError(std::string(4096 - file.size(), '/') + file), EINVAL);
}

TEST_F(TrustedFileTest, RefusesWhatOthersCouldChange) {
  for (mode_t mode : {0666u, 0646u, 0664u}) {
    chmod(file.c_str(), mode);
    EXPECT_EQ(openError(file), EPERM) << mode;
  }
  chmod(file.c_str(), 0755);
  ASSERT_EQ(chown(file.c_str(), 1000, 0), 0);
  EXPECT_EQ(openError(file), EPERM);
  ASSERT_EQ(chown(file.c_str(), 0, 1000), 0);
  EXPECT_EQ(openError(file), 0);
  for (mode_t mode : {0775u, 0757u, 01777u}) {
    chmod((folder / "inner").c_str(), mode);
    EXPECT_EQ(openError(file), EPERM) << mode;
  }
  chmod((folder / "inner").c_str(), 0755);
  ASSERT_EQ(chown((folder / "inner").c_str(), 1000, 0), 0);
  EXPECT_EQ(openError(file), EPERM);
}

TEST_F(TrustedFileTest, RefusesAnythingButFilesWithoutWaiting) {
  ASSERT_EQ(mkfifo((folder / "inner/fifo").c_str(), 0644), 0);
  EXPECT_EQ(openError(folder / "inner/fifo"), EPERM);
  EXPECT_EQ(openError(folder / "inner"), EPERM);
  EXPECT_EQ(openError(file + "/below"), EPERM);
}

TEST_F(TrustedFileTest, FollowsLinksOnlyThroughTrustedFolders) {
  std::filesystem::create_symlink("inner", folder / "relative");
  std::filesystem::create_symlink(file, folder / "absolute");
  std::filesystem::create_symlink("loop", folder / "loop");
  EXPECT_EQ(openError(folder / "relative/file"), 0);
  EXPECT_EQ(openError(folder / "absolute"), 0);
  EXPECT_EQ(openError(folder / "loop"), ELOOP);
  EXPECT_EQ(openTrustedFile(folder / "absolute/below").error().what(), file + " is not a folder");
  std::filesystem::create_symlink("inner/file", folder / "1");
  for (int i = 2; i <= 41; ++i) std::filesystem::create_symlink(std::to_string(i - 1), folder / std::to_string(i));
  EXPECT_EQ(openError(folder / "40"), 0);
  EXPECT_EQ(openError(folder / "41"), ELOOP);

  // A link in another user's folder, or one that leads through such a folder, may lead elsewhere tomorrow.
  std::filesystem::create_directory(folder / "theirs");
  std::filesystem::create_symlink(file, folder / "theirs/link");
  std::filesystem::create_symlink("theirs/link", folder / "detour");
  EXPECT_EQ(openError(folder / "detour"), 0);
  ASSERT_EQ(chown((folder / "theirs").c_str(), 1000, 0), 0);
  EXPECT_EQ(openError(folder / "theirs/link"), EPERM);
  EXPECT_EQ(openError(folder / "detour"), EPERM);
}

TEST_F(TrustedFileTest, OpensTheImageOfAProcess) {
  test::RunningCopy process(folder / "inner/image");
  EXPECT_TRUE(openTrustedImage(process.pid()));
  // The path no longer leads to the running file, but its folders must still be trusted.
  std::filesystem::remove(folder / "inner/image");
  EXPECT_TRUE(openTrustedImage(process.pid()));
  chmod((folder / "inner").c_str(), 0777);
  EXPECT_FALSE(openTrustedImage(process.pid()));
  chmod((folder / "inner").c_str(), 0755);
  ASSERT_EQ(chown(fmt::format("/proc/{}/exe", process.pid()).c_str(), 1000, 0), 0);
  EXPECT_FALSE(openTrustedImage(process.pid()));
  EXPECT_NE(openTrustedImage(0).error().number, EPERM);  // no mount is to blame
}

}  // namespace
}  // namespace platform
