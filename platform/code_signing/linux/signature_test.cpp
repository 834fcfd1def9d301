#include "platform/code_signing/linux/signature.h"

#include <fcntl.h>
#include <openssl/err.h>

#include "platform/base/file_descriptor.h"
#include "tests/support/linux/signed_files.h"

namespace platform::code_signing {
namespace {

using test::readFile;
using test::run;
using test::writeFile;

class CodeSignatureTest : public test::SigningFixture {
 protected:
  /// Verifies a file with the given content as admission does, with the payload last.
  Result<CodeSignature> read(const std::string& content, const std::string& root = anchor) {
    writeFile(*folder / "checked", content);
    FileDescriptor file(open((*folder / "checked").c_str(), O_RDONLY | O_CLOEXEC));
    auto signature = readSignatureOfFile(file.get(), root);
    EXPECT_EQ(ERR_peek_error(), 0u) << "left for the next user of OpenSSL";
    if (signature && !payloadMatches(file.get(), *signature)) return Failure(signatureFailed, "the payload differs");
    return signature;
  }
  Status check(const std::string& content, const std::string& root = anchor) {
    return read(content, root).error().number;
  }

  /// A payload signed by the openssl command with the given options.
  std::string signedWith(const std::string& payload, const std::string& directory, const std::string& options) {
    writeFile(*folder / "directory", directory);
    run(fmt::format("cd {} && openssl cms -sign -binary -in {} -outform DER -out {} -inkey leaf.key {}",
                    *folder / "own", *folder / "directory", *folder / "cms", options));
    return attached(payload, readFile(*folder / "cms"));
  }

  static std::string attached(const std::string& payload, const std::string& cms) {
    std::string length;
    for (int shift = 56; shift >= 0; shift -= 8) length.push_back(static_cast<char>(cms.size() >> shift & 0xFF));
    return payload + cms + length + "BRHCodeSignature";
  }
};

constexpr char usual[] = "-nodetach -md sha256 -signer leaf.pem -certfile intermediate.pem";
const std::string directoryOfABC =
    R"({"identifier": "x", "size": 3, "sha256": "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"})";

TEST_F(CodeSignatureTest, NamesTheSignerAndTheContent) {
  auto signature = read(readFile(*folder / "signed")).value();
  EXPECT_EQ(signature.identifier, "com.example.test");
  EXPECT_EQ(signature.payloadSize, 100'000u);
  EXPECT_EQ(signature.chain.size(), 3u);
  EXPECT_EQ(check(signedWith("abc", directoryOfABC, usual)), success);
  // An installed application still counts after its certificate has expired.
  run(
      fmt::format("cd {} && openssl req -new -key leaf.key -subj /CN=x -out x && openssl x509 -req -in x -days -1 "
                  "-CA intermediate.pem -CAkey intermediate.key -set_serial 1 -out expired.pem 2>/dev/null",
                  *folder / "own"));
  const auto* expired = "-nodetach -md sha256 -signer expired.pem -certfile intermediate.pem";
  EXPECT_EQ(check(signedWith("abc", directoryOfABC, expired)), success);
}

TEST_F(CodeSignatureTest, AnyOfSeveralAnchorsCountsAndNoOther) {
  auto own = readFile(*folder / "own/root.pem"), other = readFile(*folder / "other/root.pem");
  auto file = readFile(*folder / "signed");
  EXPECT_EQ(check(file, other + own), success);
  for (const auto& anchors :
       {other, own + other.substr(0, 200), readFile(*folder / "own/intermediate.pem"), std::string("no certificate")}) {
    EXPECT_EQ(check(file, anchors), signatureFailed);
  }
  const std::string problem = read(file, other).error().what();
  EXPECT_NE(problem.find("OU = BRIMO00618"), problem.npos) << problem;
}

TEST_F(CodeSignatureTest, ASignatureMadeElsewhereIsAttached) {
  auto tool = [&](const std::string& arguments) {
    return std::system(fmt::format("{}/sign-code {} 2>/dev/null", TOOLS_FOLDER, arguments).c_str());
  };
  std::string file = *folder / "released", directory = *folder / "directory", cms = *folder / "cms";
  writeFile(file, "abc");
  ASSERT_EQ(tool(fmt::format("--identifier x --write-directory {} {}", directory, file)), 0);
  EXPECT_EQ(readFile(directory), directoryOfABC);
  signedWith("abc", readFile(directory), usual);  // leaves the CMS in a file
  writeFile(*folder / "another", "abd");
  EXPECT_NE(tool(fmt::format("--attach {} {}", cms, std::string(*folder / "another"))), 0);
  ASSERT_EQ(tool(fmt::format("--attach {} {}", cms, file)), 0);
  EXPECT_EQ(check(readFile(file)), success);
}

TEST_F(CodeSignatureTest, NoChangedByteGoesUnnoticed) {
  auto original = readFile(*folder / "signed");
  auto genuine = read(original).value();
  // Changes every byte of the signature and some bytes of the payload. CMS leaves some bytes unsigned. Changing these
  // may go unnoticed, but must not change the signer or the content.
  for (std::size_t position = 0; position < original.size(); position += position < 100'000 ? 9'999 : 1) {
    auto changed = original;
    changed[position] = static_cast<char>(changed[position] ^ 0x01);
    if (auto signature = read(changed)) {
      EXPECT_GE(position, 100'000u);
      EXPECT_EQ(signature->identifier, genuine.identifier) << position;
      EXPECT_EQ(signature->payloadSHA256, genuine.payloadSHA256) << position;
    }
  }
}

TEST_F(CodeSignatureTest, LengthsAreChecked) {
  auto original = readFile(*folder / "signed");
  for (std::size_t size : {0, 1, 23, 24, 99'999, 100'000, 100'024}) {
    EXPECT_NE(check(original.substr(0, size)), success) << size;
    EXPECT_NE(check(original.substr(original.size() - size)), success) << size;
  }
  EXPECT_EQ(check("BRHCodeSignature"), unsignedCode);
  EXPECT_EQ(check(original + "x"), unsignedCode);
  EXPECT_EQ(check("x" + original), signatureFailed);
  auto trailer = [](const std::string& length) { return length + "BRHCodeSignature"; };
  EXPECT_EQ(check(trailer(std::string(8, '\0'))), signatureFailed);
  EXPECT_EQ(check(trailer(std::string(8, '\xFF'))), signatureFailed);
  signedWith("abc", directoryOfABC, usual);  // leaves the CMS in a file
  EXPECT_EQ(check(attached("abc", readFile(*folder / "cms") + "x")), signatureFailed);
  // The longest CMS is accepted, and one byte more is not. ECDSA signatures differ in length, so the inner loop signs
  // until the length is right.
  for (auto [size, expected] : {std::pair(65'536u, success), {65'537u, signatureFailed}}) {
    std::string file, directory = directoryOfABC;
    for (; file.size() != 3 + size + 24; directory.resize(directory.size() + 3 + size + 24 - file.size(), ' ')) {
      file = signedWith("abc", directory, usual);
    }
    EXPECT_EQ(check(file), expected);
  }
}

TEST_F(CodeSignatureTest, TheCMSMustBeOfItsForm) {
  for (const char* options : {
           "-nodetach -md sha384 -signer leaf.pem -certfile intermediate.pem",  // another digest
           "-nodetach -md sha1 -signer leaf.pem -certfile intermediate.pem",
           "-md sha256 -signer leaf.pem -certfile intermediate.pem",  // detached content
           "-nodetach -md sha256 -signer leaf.pem",                   // no intermediate
           "-nodetach -md sha256 -signer leaf.pem -certfile intermediate.pem -nocerts",
           "-nodetach -md sha256 -signer leaf.pem -signer ../other/leaf.pem -inkey ../other/leaf.key "
           "-certfile intermediate.pem",  // two signers
       }) {
    EXPECT_EQ(check(signedWith("abc", directoryOfABC, options)), signatureFailed) << options;
  }
}

TEST_F(CodeSignatureTest, TheCodeDirectoryMustBeOfItsForm) {
  auto problem = [&](std::string directory) -> std::string {
    const std::string digest = "c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
    if (auto at = directory.find('%'); at != directory.npos) directory.replace(at, 1, digest);
    return read(signedWith("", directory, usual)).error().what();
  };
  EXPECT_EQ(problem(R"({"identifier": "x", "size": 0, "sha256": "e3b0%"})"), "");
  for (const auto* directory :
       {"{}", "[]", "not JSON", R"({"identifier": 1, "size": 0, "sha256": "e3b0%"})",
        R"({"identifer": "x", "size": 0, "sha256": "e3b0%"})", R"({"identifier": "x", "Size": 0, "sha256": "e3b0%"})",
        R"({"identifier": "x", "size": 0, "sha512": "e3b0%"})", R"({"identifier": "x", "size": 0, "sha256": 0})",
        R"({"identifier": "x", "size": 0.0, "sha256": "e3b0%"})",
        R"({"identifier": "x", "size": 1, "sha256": "e3b0%"})", R"({"identifier": "x", "size": -1, "sha256": "e3b0%"})",
        R"({"identifier": "x", "size": 0, "sha256": "E3b0%"})", R"({"identifier": "x", "size": 0, "sha256": "3b0%"})",
        R"({"identifier": "x", "size": 0, "more": 1, "sha256": "e3b0%"})"}) {
    EXPECT_EQ(problem(directory), "has a damaged signature") << directory;
  }
}

}  // namespace
}  // namespace platform::code_signing
