#include "platform/code_signing/linux/requirement.h"

#include <fmt/format.h>
#include <openssl/err.h>
#include <openssl/objects.h>

#include <charconv>

namespace platform::code_signing {

namespace {

constexpr int maximumNesting = 64;

/// The certificate at a position of the chain, counted from the leaf or, if negative, from the anchor; null if the
/// chain is too short.
X509* certificateAt(const CodeSignature& signature, int position) {
  auto length = static_cast<int>(signature.chain.size());
  if (position < 0) position += length;
  return position >= 0 && position < length ? signature.chain[static_cast<std::size_t>(position)].get() : nullptr;
}

bool hasSubject(X509* certificate, int attribute, const std::string& expected) {
  const auto* name = X509_get_subject_name(certificate);
  for (int index = -1; (index = X509_NAME_get_index_by_NID(name, attribute, index)) >= 0;) {
    unsigned char* text = nullptr;
    int length = ASN1_STRING_to_UTF8(&text, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, index)));
    bool isEqual =
        length >= 0 && expected == std::string_view(reinterpret_cast<char*>(text), static_cast<std::size_t>(length));
    OPENSSL_free(text);
    if (isEqual) return true;
  }
  return false;
}

Failure syntaxError(std::size_t position, std::string_view expected) {
  return {0, fmt::format("byte {}: expected {}", position, expected)};
}

bool isWordCharacter(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         (character >= '0' && character <= '9') || character == '.' || character == '-';
}

}  // namespace

/// A recursive-descent parser. Each rule returns the predicate for its text.
class RequirementParser {
 public:
  explicit RequirementParser(std::string_view text) : text_(text) {}

  CodeRequirement requirement() {
    auto result = disjunction(0);
    if (position_ < text_.size()) throw syntaxError(position_, "\"and\", \"or\" or the end");
    return CodeRequirement(std::move(result));
  }

 private:
  using Predicate = CodeRequirement::Predicate;

  Predicate disjunction(int nesting) {
    auto result = conjunction(nesting);
    while (acceptWord("or")) {
      result = [left = std::move(result), right = conjunction(nesting)](const CodeSignature& signature) {
        return left(signature) || right(signature);
      };
    }
    return result;
  }

  Predicate conjunction(int nesting) {
    auto result = primary(nesting);
    while (acceptWord("and")) {
      result = [left = std::move(result), right = primary(nesting)](const CodeSignature& signature) {
        return left(signature) && right(signature);
      };
    }
    return result;
  }

  Predicate primary(int nesting) {
    if (nesting > maximumNesting) throw syntaxError(position_, "less nesting");
    if (accept("!")) {
      return [inner = primary(nesting + 1)](const CodeSignature& signature) { return !inner(signature); };
    }
    if (accept("(")) {
      auto inner = disjunction(nesting + 1);
      expect(")");
      return inner;
    }
    if (acceptWord("anchor")) {
      expectWord("apple");
      expectWord("generic");
      // Signatures are accepted only if their chain ends at the anchor.
      return [](const CodeSignature& signature) { return !signature.chain.empty(); };
    }
    if (acceptWord("identifier")) {
      return [identifier = string()](const CodeSignature& signature) { return signature.identifier == identifier; };
    }
    if (acceptWord("certificate")) return certificate();
    throw syntaxError(position_, "a requirement");
  }

  Predicate certificate() {
    int position = certificatePosition();
    expect("[");
    skipBlanks();
    auto start = position_;
    auto word = this->word();
    auto dot = word.find('.');
    auto kind = word.substr(0, dot);
    std::string name(dot == word.npos ? "" : word.substr(dot + 1));
    expect("]");
    if (kind == "field") {
      std::shared_ptr<ASN1_OBJECT> field(OBJ_txt2obj(name.c_str(), 1), ASN1_OBJECT_free);
      if (!field) throw syntaxError(start, "an object identifier");
      accept("/* exists */");
      return [position, field](const CodeSignature& signature) {
        auto* found = certificateAt(signature, position);
        return found && X509_get_ext_by_OBJ(found, field.get(), -1) >= 0;
      };
    }
    int attribute = kind == "subject" ? OBJ_sn2nid(name.c_str()) : NID_undef;
    if (attribute == NID_undef)
      throw syntaxError(start, "\"field.\" and an object identifier or \"subject.\" and an attribute");
    expect("=");
    return [position, attribute, expected = string()](const CodeSignature& signature) {
      auto* found = certificateAt(signature, position);
      return found && hasSubject(found, attribute, expected);
    };
  }

  int certificatePosition() {
    skipBlanks();
    auto start = position_;
    auto word = this->word();
    if (word == "leaf") return 0;
    if (word == "anchor" || word == "root") return -1;
    int position = 0;
    auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), position);
    if (error != std::errc() || end != word.data() + word.size()) {
      throw syntaxError(start, "\"leaf\", \"anchor\", \"root\" or a number");
    }
    return position;
  }

  std::string string() {
    skipBlanks();
    auto end = text_.substr(position_).starts_with('"') ? text_.find('"', position_ + 1) : text_.npos;
    if (end == text_.npos) throw syntaxError(position_, "a text in double quotes");
    std::string result(text_.substr(position_ + 1, end - position_ - 1));
    position_ = end + 1;
    return result;
  }

  void skipBlanks() { position_ = std::min(text_.find_first_not_of(" \t\r\n", position_), text_.size()); }

  std::string_view word() {
    auto start = position_;
    while (position_ < text_.size() && isWordCharacter(text_[position_])) ++position_;
    return text_.substr(start, position_ - start);
  }

  bool acceptWord(std::string_view wanted) {
    skipBlanks();
    auto start = position_;
    if (word() == wanted) return true;
    position_ = start;
    return false;
  }

  void expectWord(std::string_view wanted) {
    if (!acceptWord(wanted)) throw syntaxError(position_, fmt::format("\"{}\"", wanted));
  }

  bool accept(std::string_view wanted) {
    skipBlanks();
    if (!text_.substr(position_).starts_with(wanted)) return false;
    position_ += wanted.size();
    return true;
  }

  void expect(std::string_view wanted) {
    if (!accept(wanted)) throw syntaxError(position_, fmt::format("\"{}\"", wanted));
  }

  std::string_view text_;
  std::size_t position_ = 0;
};

Result<CodeRequirement> CodeRequirement::parse(std::string_view text) {
  auto requirement = attempt([&] { return RequirementParser(text).requirement(); });
  ERR_clear_error();
  return requirement;
}

}  // namespace platform::code_signing
