#include "foundation/JSONValue.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

std::string errorOf(std::string_view text) {
    try {
        (void)JSONValue::parse(text);
    } catch (const JSONValue::ParseError& error) {
        return error.message();
    }
    return "parsed";
}

TEST(JSONValueTest, SyntaxErrorsNameTheProblemAndItsByteOffset) {
    EXPECT_EQ(errorOf("[1] x"), "Unexpected content after the JSON value at byte 4");
    EXPECT_EQ(errorOf("{\"a\" 1}"), "Expected : at byte 5");
    EXPECT_EQ(errorOf("{1}"), "Expected a string key at byte 1");
    EXPECT_EQ(errorOf("{\"a\":1,}"), "Expected a string key at byte 7");
    EXPECT_EQ(errorOf("{\"a\":1 \"b\":2}"), "Expected , or } at byte 7");
    EXPECT_EQ(errorOf("[1 2]"), "Expected , or ] at byte 3");
    EXPECT_EQ(errorOf("{\"a\":1"), "Unterminated object at byte 6");
    EXPECT_EQ(errorOf("[1, 2"), "Unterminated array at byte 5");
    EXPECT_EQ(errorOf("\"abc"), "Unterminated string at byte 4");
    EXPECT_EQ(errorOf("\"abc\\"), "Unterminated string at byte 5");
    EXPECT_EQ(errorOf(""), "Unexpected end of JSON at byte 0");
    EXPECT_EQ(errorOf("  \n"), "Unexpected end of JSON at byte 3");
    EXPECT_EQ(errorOf("[1,"), "Unexpected end of JSON at byte 3");
    EXPECT_EQ(errorOf("tru"), "Invalid literal at byte 0");
    EXPECT_EQ(errorOf("[nul]"), "Invalid literal at byte 1");
    // A number's offset is the end of the run of number bytes.
    EXPECT_EQ(errorOf("[1.2.3]"), "Invalid number at byte 6");
    EXPECT_EQ(errorOf("-"), "Invalid number at byte 1");
    EXPECT_EQ(errorOf("1e"), "Invalid number at byte 2");
    EXPECT_EQ(errorOf("[x]"), "Invalid number at byte 1");
    EXPECT_EQ(errorOf("[1,]"), "Invalid number at byte 3");
    EXPECT_EQ(errorOf("\"\\u12G4\""), "Invalid \\u escape at byte 1");
    EXPECT_EQ(errorOf("\"ab\\u12\""), "Invalid \\u escape at byte 3");
    // Offsets count bytes, not characters.
    EXPECT_EQ(errorOf("\"\xC3\xA9\" x"), "Unexpected content after the JSON value at byte 5");
    EXPECT_EQ(errorOf("\"\xC3\" "), "File is not UTF-8");
    EXPECT_EQ(errorOf("\"\xED\xA0\x80\""), "File is not UTF-8");       // an encoded surrogate
    EXPECT_EQ(errorOf("[\"\xF4\x90\x80\x80\"]"), "File is not UTF-8"); // above U+10FFFF
    EXPECT_EQ(errorOf("\"\xC0\xAF\""), "File is not UTF-8");           // overlong slash
}

TEST(JSONValueTest, DeepNestingFailsWithAPositionInsteadOfOverflowingTheStack) {
    std::string deep(100000, '[');
    deep += std::string(100000, ']');
    EXPECT_EQ(errorOf(deep), "Nesting deeper than 1000 levels at byte 1000");
    std::string objects;
    for (int i = 0; i < 5000; ++i)
        objects += "{\"a\":";
    EXPECT_EQ(errorOf(objects), "Nesting deeper than 1000 levels at byte 5000");

    std::string allowed =
        std::string(JSONValue::maxDepth, '[') + std::string(JSONValue::maxDepth, ']');
    JSONValue value = JSONValue::parse(allowed);
    EXPECT_EQ(value.compact(), allowed);
}

TEST(JSONValueTest, RoundTripKeepsKeyOrderDuplicatesAndNumberText) {
    const std::string text =
        R"({"b":1.50,"a":[1e3,-0,+7,007],"b":{"z":null,"y":true,"x":false},"s":"\/"})";
    JSONValue value = JSONValue::parse(text);
    EXPECT_EQ(value.compact(),
              R"({"b":1.50,"a":[1e3,-0,+7,007],"b":{"z":null,"y":true,"x":false},"s":"/"})");
    ASSERT_EQ(value.objectPairs()->size(), 4u);
    EXPECT_EQ(value.objectPairs()->at(0).first, "b");
    EXPECT_EQ(*value.get("b")->numberText(), "1.50");
    EXPECT_EQ(JSONValue::parse(value.compact()), value);

    JSONValue spaced = JSONValue::parse(" \t\r\n{ \"k\" :\n[ 1 , 2 ] } \n");
    EXPECT_EQ(spaced.compact(), R"({"k":[1,2]})");
}

TEST(JSONValueTest, StringEscapesDecodeAndEncodeAsDocumented) {
    JSONValue value = JSONValue::parse(R"("a\"b\\c\/d\b\f\n\r\t\q\u00e9\u0001")");
    EXPECT_EQ(*value.stringValue(), "a\"b\\c/d\b\f\n\r\tq\xC3\xA9\x01");
    EXPECT_EQ(value.compact(), R"("a\"b\\c/d\b\f\n\r\tqé\u0001")");

    // A surrogate pair forms one character; unpaired halves become U+FFFD.
    EXPECT_EQ(*JSONValue::parse(R"("\ud83d\ude00")").stringValue(), "\xF0\x9F\x98\x80");
    EXPECT_EQ(*JSONValue::parse(R"("\uD83D")").stringValue(), "\xEF\xBF\xBD");
    EXPECT_EQ(*JSONValue::parse(R"("\uDE00x")").stringValue(), "\xEF\xBF\xBDx");
    EXPECT_EQ(*JSONValue::parse(R"("\ud83d\u0041")").stringValue(),
              std::string("\xEF\xBF\xBD") + "A");
    // Raw control characters inside strings are accepted as they are.
    EXPECT_EQ(*JSONValue::parse("\"a\tb\"").stringValue(), "a\tb");

    // Near the end of the text the last eight bytes are read again: the quotation mark
    // before a string must not make its first byte ('#' and ']' differ from the quotation
    // mark and the backslash in one bit) look special.
    for (const char* text : {R"({"k":"#"})", R"(["]","#1a1t"])", R"({"a\u0001":"#1a1t"})"}) {
        SCOPED_TRACE(text);
        const JSONValue parsed = JSONValue::parse(text);
        EXPECT_EQ(parsed.compact(), text);
    }

    EXPECT_EQ(JSONValue::quote("x/y\x1f\x7f"), "\"x/y\\u001f\x7f\"");
    EXPECT_EQ(JSONValue::quote(std::string("nul\0!", 5)), "\"nul\\u0000!\"");
    // Texts are scanned eight bytes at a time: escapes on either side of each boundary.
    EXPECT_EQ(JSONValue::quote("0123456\"89abcdef\\\nhijklmnopqrstu\x01"),
              R"("0123456\"89abcdef\\\nhijklmnopqrstu\u0001")");
}

TEST(JSONValueTest, PrettyPrintsTwoSpacesPerLevel) {
    JSONValue value = JSONValue::parse(R"({"a":[1,{"b":[]}],"c":{},"d":"x"})");
    EXPECT_EQ(value.pretty(0), "{\n"
                               "  \"a\": [\n"
                               "    1,\n"
                               "    {\n"
                               "      \"b\": []\n"
                               "    }\n"
                               "  ],\n"
                               "  \"c\": {},\n"
                               "  \"d\": \"x\"\n"
                               "}");
    EXPECT_EQ(JSONValue::parse("[1]").pretty(4), "[\n      1\n    ]");
    EXPECT_EQ(JSONValue::parse("\"s\"").pretty(2), "\"s\"");
}

TEST(JSONValueTest, KeySubscriptReadsWritesAndRemovesInPlace) {
    JSONValue value = JSONValue::parse(R"({"a":1,"b":2,"c":3,"b":4})");
    EXPECT_EQ(*value.get("b")->numberText(), "2"); // the first pair wins
    EXPECT_EQ(value.get("zz"), nullptr);

    value.set("b", "two");
    EXPECT_EQ(value.compact(), R"({"a":1,"b":"two","c":3,"b":4})");
    value.set("d", JSONValue::boolean(true));
    EXPECT_EQ(value.compact(), R"({"a":1,"b":"two","c":3,"b":4,"d":true})");
    value.remove("a");
    EXPECT_EQ(value.compact(), R"({"b":"two","c":3,"b":4,"d":true})");
    value.remove("b");
    EXPECT_EQ(value.compact(), R"({"c":3,"b":4,"d":true})");

    JSONValue array = JSONValue::parse("[1]");
    array.set("a", JSONValue::integer(1));
    array.remove("a");
    EXPECT_EQ(array.compact(), "[1]");
    EXPECT_EQ(array.get("a"), nullptr);
}

TEST(JSONValueTest, AccessorsAnswerOnlyForTheirOwnKind) {
    JSONValue value = JSONValue::parse(
        R"({"s":"x","n":42,"f":4.0,"big":99999999999999999999,"huge":1e40,"t":true,"a":[1],"o":{}})");
    EXPECT_EQ(*value.get("s")->stringValue(), "x");
    EXPECT_EQ(value.get("n")->stringValue(), nullptr);
    EXPECT_EQ(value.get("n")->intValue(), 42);
    EXPECT_EQ(value.get("f")->intValue(), 4);
    EXPECT_EQ(value.get("big")->intValue(), std::nullopt);
    EXPECT_EQ(value.get("huge")->intValue(), std::nullopt); // a double too large for 64 bits
    EXPECT_EQ(value.get("huge")->doubleValue(), 1e40);
    EXPECT_EQ(value.get("s")->intValue(), std::nullopt);
    EXPECT_EQ(value.get("t")->boolValue(), true);
    EXPECT_EQ(value.get("n")->boolValue(), std::nullopt);
    EXPECT_EQ(value.get("a")->arrayValue()->size(), 1u);
    EXPECT_EQ(value.get("o")->arrayValue(), nullptr);
    EXPECT_TRUE(value.get("o")->isObject());
    EXPECT_EQ(value.get("a")->objectPairs(), nullptr);

    EXPECT_EQ(JSONValue::integer(-12).compact(), "-12");
    EXPECT_EQ(JSONValue::real(1732170000.25).compact(), "1732170000.25");
}

TEST(JSONValueTest, FromSortsKeysAtEveryDepthKeepingDuplicates) {
    JSONValue value = JSONValue::parse(R"({"b":{"z":1,"a":2},"a":[{"d":1,"c":2}],"b":0})");
    EXPECT_EQ(JSONValue::from(value).compact(), R"({"a":[{"c":2,"d":1}],"b":{"a":2,"z":1},"b":0})");
    EXPECT_EQ(JSONValue::from(JSONValue("x")).compact(), "\"x\"");
}

} // namespace
} // namespace tidewick
