// Temporary folders for tests.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

/// A folder that the destructor deletes. Its path contains no symbolic links.
class TemporaryFolder {
 public:
  explicit TemporaryFolder(const std::filesystem::path& base = std::filesystem::temp_directory_path())
      : path_(std::filesystem::canonical(base) / "brimo.XXXXXX") {
    if (!mkdtemp(path_.data())) throw std::runtime_error("mkdtemp");
  }
  ~TemporaryFolder() { std::filesystem::remove_all(path_); }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + '/' + name; }

 private:
  std::string path_;
};
