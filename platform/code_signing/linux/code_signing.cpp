#include "platform/code_signing/code_signing.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <map>

#include "platform/base/linux/file_state.h"
#include "platform/code_signing/linux/requirement.h"
#include "platform/code_signing/linux/running_image.h"
#include "platform/code_signing/linux/signature.h"
#include "platform/code_signing/linux/trusted_file.h"
#include "platform/process/process.h"

namespace platform::code_signing {

namespace {

/// Signatures of files whose payload has been verified. Main thread.
std::map<FileState, CodeSignature>& verifiedFiles() {
  static std::map<FileState, CodeSignature> files;
  return files;
}
constexpr std::size_t maximumVerifiedFiles = 64;

Result<void> checkRequirement(const CodeRequirement& requirement, const std::string& text,
                              const CodeSignature& signature) {
  if (requirement.isSatisfiedBy(signature)) return {};
  auto sentence = fmt::format(R"(is signed as "{}" by "{}", which does not satisfy: {})", signature.identifier,
                              subjectOf(*signature.chain.front()), text);
  return Failure(requirementFailed, sentence);
}

Result<void> checkOpenFile(int descriptor, const std::string& requirementText) {
  auto requirement = CodeRequirement::parse(requirementText);
  if (!requirement)
    return Failure(requirementInvalid, "cannot be checked against an invalid requirement: " + requirementText);

  struct stat status;
  if (fstat(descriptor, &status) != 0) return Failure(noSuchFile, "cannot be examined");
  const auto state = stateOf(status);
  auto& files = verifiedFiles();
  if (auto found = files.find(state); found != files.end()) {
    return checkRequirement(*requirement, requirementText, found->second);
  }
  // The digest comes last, because reading a large file is only worthwhile if everything else is in order.
  auto signature = readSignatureOfFile(descriptor, anchorPEM);
  if (!signature) return signature.error();
  if (auto satisfied = checkRequirement(*requirement, requirementText, *signature); !satisfied) return satisfied;
  if (!payloadMatches(descriptor, *signature)) return Failure(signatureFailed, "has been changed since it was signed");
  if (files.size() >= maximumVerifiedFiles) files.clear();
  files.emplace(state, std::move(*signature));
  return {};
}

/// Checks a file that was opened, or converts the reason why it could not be opened to a Status.
Result<void> checkOpened(const Result<FileDescriptor>& file, const std::string& path, const std::string& requirement) {
  if (!file) {
    const int number = file.error().number;
    const bool isMissing = number == ENOENT || number == ENOTDIR || number == ELOOP;
    return Failure(isMissing ? noSuchFile : signatureFailed, file.error().what());
  }
  auto checked = checkOpenFile(file->get(), requirement);
  if (!checked) return Failure(checked.error().number, path + " " + checked.error().what());
  return {};
}

}  // namespace

Result<void> checkRunningImage(std::int32_t pid, const std::string& requirement) {
  return checkOpened(openTrustedImage(pid), executablePath(pid).value_or("the image"), requirement);
}

Result<void> checkFile(const std::string& path, const std::string& requirement) {
  return checkOpened(openTrustedFile(path), path, requirement);
}

}  // namespace platform::code_signing
