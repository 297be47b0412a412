#include "tools/JsonValue.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace {

std::string faultOf(const std::string& text) {
    try {
        JsonValue::parse(text);
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return {};
}

} // namespace

TEST(JsonValue, ReadsEveryKindOfValue) {
    const JsonValue v =
        JsonValue::parse(R"( {"a": [1, -2.5e1, 0.125], "b": {"c": true, "d": false, "e": null},
        "s": "x\"\\\/\n\t\u00e9\ud83d\ude00"} )");
    ASSERT_TRUE(v.isObject());
    const auto& a = v.find("a")->items;
    ASSERT_EQ(a.size(), 3u);
    EXPECT_EQ(a[0].number, 1.0);
    EXPECT_EQ(a[1].number, -25.0);
    EXPECT_EQ(a[2].number, 0.125);
    EXPECT_TRUE(v.find("b")->find("c")->boolean);
    EXPECT_EQ(v.find("b")->find("d")->kind, JsonValue::Kind::Bool);
    EXPECT_FALSE(v.find("b")->find("d")->boolean);
    EXPECT_EQ(v.find("b")->find("e")->kind, JsonValue::Kind::Null);
    EXPECT_EQ(v.find("s")->text, "x\"\\/\n\t\xc3\xa9\xf0\x9f\x98\x80");
    EXPECT_EQ(v.find("missing"), nullptr);
    EXPECT_EQ(v.find("a")->find("x"), nullptr);
    EXPECT_TRUE(JsonValue::parse("[]").items.empty());
    EXPECT_TRUE(JsonValue::parse("{}").members.empty());
}

TEST(JsonValue, RefusesBrokenTextNamingTheLine) {
    EXPECT_EQ(faultOf("{\n\"a\": 1,\n}"), "line 3: key expected");
    EXPECT_EQ(faultOf("[1, 2"), "line 1: ']' expected");
    EXPECT_EQ(faultOf("{\"a\" 1}"), "line 1: ':' expected");
    EXPECT_EQ(faultOf("{\"a\": 1, \"a\": 2}"), "line 1: duplicate key");
    EXPECT_EQ(faultOf("\"open"), "line 1: unterminated string");
    EXPECT_EQ(faultOf("\"a\nb\""), "line 1: control character in string");
    EXPECT_EQ(faultOf("\"\\q\""), "line 1: bad escape");
    EXPECT_EQ(faultOf("1.e5"), "line 1: digit expected");
    EXPECT_EQ(faultOf("1e999"), "line 1: number out of range");
    EXPECT_EQ(faultOf("tru"), "line 1: value expected");
    EXPECT_EQ(faultOf("1 2"), "line 1: text after the document");
    EXPECT_EQ(faultOf(""), "line 1: value expected");
    EXPECT_EQ(faultOf(std::string(100, '[') + std::string(100, ']')), "line 1: nested too deeply");
}

TEST(JsonValue, QuotesWhatItReads) {
    const std::string raw = std::string("a\"b\\c\n\x01 \xc3\xa9");
    EXPECT_EQ(JsonValue::quote(raw), "\"a\\\"b\\\\c\\u000a\\u0001 \xc3\xa9\"");
    EXPECT_EQ(JsonValue::parse(JsonValue::quote(raw)).text, raw);
    // Stray bytes from a damaged name still give valid JSON, as Latin-1.
    EXPECT_EQ(JsonValue::quote("a\xee\x41\xc3"), "\"a\\u00eeA\\u00c3\"");
    EXPECT_EQ(JsonValue::parse(JsonValue::quote("\xff\xfe")).text, "\xc3\xbf\xc3\xbe");
}
