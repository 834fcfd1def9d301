#include "platform/code_signing/code_signing.h"

#include <sys/stat.h>

#include <map>
#include <tuple>

#include "platform/code_signing/linux/requirement.h"
#include "platform/code_signing/linux/running_image.h"
#include "platform/code_signing/linux/signature.h"
#include "platform/code_signing/linux/trusted_file.h"

namespace platform::code_signing {

namespace {

/// A state of a file: any change of its content shows in one of these.
using FileState = std::tuple<dev_t, ino_t, off_t, time_t, long, time_t, long>;

FileState stateOf(int descriptor) {
  struct stat status {};
  fstat(descriptor, &status);
  return {status.st_dev,          status.st_ino,         status.st_size,        status.st_mtim.tv_sec,
          status.st_mtim.tv_nsec, status.st_ctim.tv_sec, status.st_ctim.tv_nsec};
}

/// Signatures of files whose payload has been verified.
std::map<FileState, CodeSignature>& verifiedFiles() {
  static std::map<FileState, CodeSignature> files;
  return files;
}
constexpr std::size_t maximumVerifiedFiles = 64;

Status checkOpenFile(int descriptor, const std::string& requirementText) {
  auto requirement = CodeRequirement::parse(requirementText);
  if (!requirement) return requirementInvalid;

  auto& files = verifiedFiles();
  auto state = stateOf(descriptor);
  if (auto found = files.find(state); found != files.end()) {
    return requirement->isSatisfiedBy(found->second) ? success : requirementFailed;
  }
  // The digest comes last: reading a large file through is only worth it when all else is in order.
  auto signature = readSignatureOfFile(descriptor, anchorPEM);
  if (!signature) return signature.error().number;
  if (!requirement->isSatisfiedBy(*signature)) return requirementFailed;
  if (!payloadMatches(descriptor, *signature)) return signatureFailed;
  if (files.size() >= maximumVerifiedFiles) files.clear();
  files.emplace(state, std::move(*signature));
  return success;
}

Status statusOf(const Failure& failure) {
  const int number = failure.number;
  return number == ENOENT || number == ENOTDIR || number == ELOOP ? noSuchFile : signatureFailed;
}

}  // namespace

Status checkRunningImage(std::int32_t pid, const std::string& requirement) {
  auto image = openTrustedImage(pid);
  return image ? checkOpenFile(image->get(), requirement) : statusOf(image.error());
}

Status checkFile(const std::string& path, const std::string& requirement) {
  auto file = openTrustedFile(path);
  return file ? checkOpenFile(file->get(), requirement) : statusOf(file.error());
}

}  // namespace platform::code_signing
