#include "foundation/HXEquationLine.h"

#include <gtest/gtest.h>

#include "foundation/detail/HXUnicode.h"

namespace {

TEST(EquationLine, SplitsAtTheFirstSignOutsideOfQuotes) {
  struct Example {
    std::string_view line, key, value;
  };
  for (auto [line, key, value] : std::initializer_list<Example>{
           {"k = v", "k", "v"},
           {"k2=\"a=b\"", "k2", "a=b"},
           {"=v", "", "v"},
           {"k= ", "k", ""},
           {R"("a=b" = c)", "a=b", "c"},
           {R"('a=b' = c)", "a=b", "c"},
           {R"('a"=b' = c)", "a\"=b", "c"},
           {R"(a "=" b = c)", "a \"=\" b", "c"},  // a quoted part inside
           {R"(a '=' b)", "a '", "' b"},          // apostrophes quote only at the beginning
           {R"("a\"=\\" = c)", "a\"=\\", "c"},
           {R"('a\' = c)", "a\\", "c"},  // no escapes within apostrophes
           {R"("a" x = c)", "\"a\" x", "c"},
           {R"("a""b=c" = d)", "\"a\"\"b", "c\" = d"},  // no quote opens directly after a closing one
           {R"("k" = "say \"hi\" \n")", "k", "say \"hi\" \\n"},
           {R"(k = ")", "k", "\""},
           {R"(k = '\"')", "k", "\\\""},
           {"\u2003k\u00A0=\u3000v\u2028", "k", "v"},
           {"e\u0301=x", "e\u0301", "x"},
           {"a=\u0338b = c", "a=\u0338b", "c"},  // one composed character, a crossed-out equals sign
           {"\"\u0301a = \"b", "\"\u0301a", "\"b"},
           {"\xFF=\xC3", "\xFF", "\xC3"},
       }) {
    EXPECT_EQ(hx::splitEquationLine(line), (hx::Equation{std::string(key), std::string(value)})) << line;
  }
}

TEST(EquationLine, RefusesLinesWithoutTwoSides) {
  for (std::string_view line :
       {"", " ", "k", "k4=", "=", "\"a=b", "'a=b", "\"a=b\"", "\"a\\\"=b", "a\"=b", "=\u0301", "a=\u0338"})
    EXPECT_FALSE(hx::splitEquationLine(line)) << line;
}

TEST(Unicode, LowercaseKeepsInvalidBytes) {
  EXPECT_EQ(hx::detail::lowercase("ABC-ÄÖ-ДЖ-\u212A-1"), "abc-äö-дж-k-1");
  EXPECT_EQ(hx::detail::lowercase("A\xFF\xC3"
                                  "B\xE2\x84"),
            "a\xFF\xC3"
            "b\xE2\x84");
}

}  // namespace
