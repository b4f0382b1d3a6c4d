#include "core/browser/script_value.h"

#include <gtest/gtest.h>

namespace velto {
namespace {

using V = ScriptValue;

TEST(ScriptValueTest, ReadsEveryKindInSourceForm) {
  const struct {
    std::string_view output;
    V expected;
  } cases[] = {
      // A snapshot reply as the script runner prints it, with escapes in a title.
      {"{{\"1234\", \"567\", 1, \"Say \\\"hi\\\" \\\\ bye\", \"https://a.org/\", true}, "
       "{\"1234\", \"568\", -2, \"\", \"u\", false}}\n",
       V::list(
           {V::list({V::text("1234"), V::text("567"), V::integer(1), V::text("Say \"hi\" \\ bye"),
                     V::text("https://a.org/"), V::boolean(true)}),
            V::list({V::text("1234"), V::text("568"), V::integer(-2), V::text(""), V::text("u"),
                     V::boolean(false)})})},
      {"missing value", V()},
      {" \n", V()},
      {"{ }", V::list({})},
      {"9223372036854775807", V::integer(INT64_MAX)},
      {"\"a\nb\"", V::text("a\nb")},  // a raw line break inside a string
      {"\"\\n\\r\\t\"", V::text("\n\r\t")},
      {"\"caf\xc3\xa9\"", V::text("caf\xc3\xa9")},
      {"{1,{2,{}},missing value}",
       V::list({V::integer(1), V::list({V::integer(2), V::list({})}), V()})},
  };
  for (const auto& c : cases) {
    const auto value = parseScriptOutput(c.output);
    ASSERT_TRUE(value) << c.output;
    EXPECT_EQ(*value, c.expected) << c.output;
  }
}

TEST(ScriptValueTest, RejectsMalformedAndForeignOutput) {
  const std::string deep =
      std::string(kMaxScriptValueDepth + 1, '{') + std::string(kMaxScriptValueDepth + 1, '}');
  const std::string_view cases[] = {
      "{\"a\", 1",               // truncated list
      "{\"a\" 1}",               // missing comma
      "{1,}",                    // trailing comma
      "\"open",                  // unterminated string
      "\"bad \\q escape\"",      //
      "\"ends in backslash\\",   //
      "1.5",                     // reals are never returned by our scripts
      "9223372036854775808",     // overflow
      "-",                       //
      "trueish",                 //
      "{name:\"x\"}",            // records
      "application \"Safari\"",  // object references
      "true false",              // two values
      deep,
  };
  for (std::string_view output : cases) EXPECT_FALSE(parseScriptOutput(output)) << output;
  EXPECT_TRUE(parseScriptOutput(deep.substr(1, deep.size() - 2)));
}

TEST(ScriptValueTest, CoercionsFollowDescriptorRules) {
  const V list = V::list({V::integer(7)});
  EXPECT_EQ(list.item(1)->int32Value(), 7);
  EXPECT_EQ(list.item(0), nullptr);
  EXPECT_EQ(list.item(2), nullptr);
  EXPECT_EQ(V::text("x").numberOfItems(), 0u);

  const struct {
    V value;
    std::optional<std::string> text;
    int32_t number;
    bool flag;
  } cases[] = {
      {V::text("-12"), "-12", -12, false},
      {V::text("12a"), "12a", 0, false},
      {V::text("true"), "true", 0, false},
      {V::integer(-5), "-5", -5, true},
      {V::integer(0), "0", 0, false},
      {V::integer(int64_t{INT32_MAX} + 1), "2147483648", 0, true},
      {V::boolean(true), std::nullopt, 1, true},
      {V::boolean(false), std::nullopt, 0, false},
      {V(), std::nullopt, 0, false},
      {list, std::nullopt, 0, false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.value.stringValue(), c.text);
    EXPECT_EQ(c.value.int32Value(), c.number) << c.text.value_or("?");
    EXPECT_EQ(c.value.booleanValue(), c.flag) << c.text.value_or("?");
  }
}

}  // namespace
}  // namespace velto
