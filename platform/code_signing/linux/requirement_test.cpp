#include "platform/code_signing/linux/requirement.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include "tests/support/linux/signed_files.h"

namespace platform::code_signing {
namespace {

class CodeRequirementTest : public test::SigningFixture {
 protected:
  void SetUp() override {
    signature.identifier = "com.example.test";
    for (const char* name : {"leaf", "intermediate", "root"}) {
      auto text = test::readFile(*folder / fmt::format("own/{}.pem", name));
      std::shared_ptr<BIO> bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())), BIO_free);
      signature.chain.emplace_back(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr), X509_free);
    }
  }

  bool holds(const std::string& text) {
    auto requirement = CodeRequirement::parse(text);
    EXPECT_TRUE(requirement) << text << ": " << requirement.error().what();
    return requirement && requirement->isSatisfiedBy(signature);
  }

  CodeSignature signature;
};

TEST_F(CodeRequirementTest, LooksAtTheCertificateThatIsNamed) {
  EXPECT_TRUE(holds("anchor apple generic"));
  EXPECT_TRUE(holds("identifier \"com.example.test\""));
  EXPECT_TRUE(holds("certificate leaf[field.2.5.29.19]"));
  EXPECT_TRUE(holds("certificate 0 [ field.1.2.840.113635.100.6.1.13 ] /* exists */"));
  EXPECT_FALSE(holds("certificate 1[field.1.2.840.113635.100.6.1.13] /* exists */"));
  EXPECT_TRUE(holds("certificate -2[field.1.2.840.113635.100.6.2.6] /* exists */"));
  EXPECT_FALSE(holds("certificate 3[field.1.2.840.113635.100.6.2.6] /* exists */"));
  EXPECT_FALSE(holds("certificate -4[subject.CN] = \"Brimo Development Root (throw-away)\""));
  EXPECT_TRUE(holds("certificate leaf[subject.OU] = \"BRIMO00618\""));
  EXPECT_FALSE(holds("certificate leaf[subject.OU] = \"BRIMO0061\""));
  EXPECT_TRUE(holds("certificate anchor[subject.CN] = \"Brimo Development Root (throw-away)\""));
  EXPECT_FALSE(holds("certificate root[subject.OU] = \"BRIMO00618\""));
}

TEST_F(CodeRequirementTest, AndBindsTighterThanOr) {
  const std::string yes = "identifier \"com.example.test\"", no = "identifier \"x\"";
  EXPECT_TRUE(holds(yes + " or " + no + " and " + no));
  EXPECT_FALSE(holds("(" + yes + " or " + no + ") and " + no));
  EXPECT_TRUE(holds("!" + no + " and " + yes));
  EXPECT_FALSE(holds("!(" + no + " or " + yes + ")"));
  EXPECT_FALSE(holds(no + " and " + yes));
  EXPECT_TRUE(holds(std::string(64, '(') + yes + std::string(64, ')')));
  EXPECT_TRUE(holds(std::string(64, '!') + yes));
  EXPECT_FALSE(CodeRequirement::parse(std::string(65, '(') + yes + std::string(65, ')')));
  EXPECT_FALSE(CodeRequirement::parse(std::string(65, '!') + yes));
  EXPECT_TRUE(holds("\t" + yes + "\nand(" + yes + ")"));
}

TEST_F(CodeRequirementTest, AnythingElseIsAnErrorWithItsPlace) {
  // The place is where "^" stands, which is not part of the text.
  for (std::string text :
       {"^", "anchor apple^", "anchor^~", "identifier ^\"com.example", "identifier \"a\" ^identifier \"b\"",
        "identifier \"a\" and^", "(identifier \"a\"^", "^cdhash H\"00\"", "certificate ^middle[subject.OU] = \"x\"",
        "certificate ^1x[subject.OU] = \"x\"", "certificate ^[subject.OU] = \"x\"",
        "certificate ^99999999999[subject.OU] = \"x\"", "certificate leaf[ ^fields.1.2.3]", "certificate leaf[^field.]",
        "certificate leaf[^subject.AzZ] = \"x\"", "certificate leaf[^field.CN]", "certificate leaf[subject.OU]^",
        "certificate leaf ^trusted"}) {
    auto place = text.find('^');
    const std::string problem = CodeRequirement::parse(text.erase(place, 1)).error().what();
    EXPECT_TRUE(problem.starts_with(fmt::format("byte {}:", place))) << text << ": " << problem;
    EXPECT_EQ(ERR_peek_error(), 0u) << "left for the next user of OpenSSL";
  }
}

}  // namespace
}  // namespace platform::code_signing
