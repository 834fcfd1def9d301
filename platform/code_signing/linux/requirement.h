// Requirements on code signatures, in a subset of Apple's requirement language:
//
//     expression  = expression "or" expression | expression "and" expression | "!" expression | "(" expression ")"
//                 | "anchor apple generic" | "identifier" string
//                 | "certificate" position "[field." OID "]" ["/* exists */"]
//                 | "certificate" position "[subject." attribute "]" "=" string
//     position    = "leaf" | "anchor" | "root" | number        (0: leaf; -1: anchor)
//
// "!" binds tightest and "or" loosest. The anchor is one of the compiled-in roots.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "platform/base/result.h"
#include "platform/code_signing/linux/signature.h"

namespace platform::code_signing {

class CodeRequirement {
 public:
  /// Fails if the text does not follow the grammar; the sentence says what was expected at which byte.
  static Result<CodeRequirement> parse(std::string_view text);

  bool isSatisfiedBy(const CodeSignature& signature) const { return predicate_(signature); }

 private:
  using Predicate = std::function<bool(const CodeSignature&)>;
  friend class RequirementParser;
  explicit CodeRequirement(Predicate predicate) : predicate_(std::move(predicate)) {}
  Predicate predicate_;
};

}  // namespace platform::code_signing
