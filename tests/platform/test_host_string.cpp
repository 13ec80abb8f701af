// The host string facility: which arrays are scalar text, UTF-8 conversion of char arrays
// (UTF-16 code units, surrogate pairs included) and string objects, and the "QUARTZ:string"
// errors for text that is not scalar and for missing strings.
#include <platform/HostError.hpp>
#include <platform/HostString.hpp>

#include <gtest/gtest.h>

using platform::HostArray;

namespace {
std::string raisedId(const HostArray& a) {
    try {
        (void)platform::toUtf8(a);
    } catch (const platform::HostErrorException& e) {
        return e.identifier();
    }
    return "";
}
} // namespace

TEST(HostString, ScalarText) {
    struct Case {
        const char* name;
        HostArray a;
        bool scalar;
    };
    const Case cases[] = {
        {"char row", HostArray::charRow("linear"), true},
        {"0 x 0 char", HostArray::charRow(""), true},
        {"1 x 0 char", HostArray::createChar({1, 0}, u""), true},
        {"0 x 3 char", HostArray::createChar({0, 3}, u""), false},
        {"char column", HostArray::createChar({3, 1}, u"abc"), false},
        {"two-row char", HostArray::createChar({2, 2}, u"abcd"), false},
        {"string scalar", HostArray::stringScalar("linear"), true},
        {"missing string", HostArray::missingString(), true},
        {"string array", HostArray::createString({1, 2}, {"a", "b"}), false},
        {"double", HostArray::scalar(1), false},
        {"cell of text", HostArray::cellOf({HostArray::charRow("a")}), false},
        {"null", HostArray(), false},
    };
    for (const Case& c : cases)
        EXPECT_EQ(platform::isScalarText(c.a), c.scalar) << c.name;
}

TEST(HostString, Utf8Conversion) {
    const char* samples[] = {"linear", "",
                             "lin\xC3\xA9"
                             "ar",
                             "\xE2\x82\xAC 5", "\xF0\x9F\x98\x80 grin"};
    for (const char* s : samples) {
        EXPECT_EQ(platform::toUtf8(HostArray::charRow(s)), s);
        EXPECT_EQ(platform::toUtf8(HostArray::stringScalar(s)), s);
    }
    // Code units straight: U+00E9, U+20AC, a surrogate pair for U+1F600.
    EXPECT_EQ(platform::utf16ToUtf8(u"\u00e9\u20ac\U0001F600"),
              "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
    // Unpaired surrogates become U+FFFD.
    const char16_t lone[] = {u'a', char16_t(0xD800), u'b', char16_t(0xDC00)};
    EXPECT_EQ(platform::utf16ToUtf8(std::u16string_view(lone, 4)), "a\xEF\xBF\xBD"
                                                                   "b\xEF\xBF\xBD");
}

TEST(HostString, Errors) {
    EXPECT_EQ(raisedId(HostArray::createChar({2, 2}, u"abcd")),
              "QUARTZ:string:MustBeStringScalarOrCharacterVector");
    EXPECT_EQ(raisedId(HostArray::createString({1, 2}, {"a", "b"})),
              "QUARTZ:string:MustBeStringScalarOrCharacterVector");
    EXPECT_EQ(raisedId(HostArray::scalar(3)), "QUARTZ:string:MustBeStringScalarOrCharacterVector");
    EXPECT_EQ(raisedId(HostArray::missingString()), "QUARTZ:string:MissingNotSupported");
    EXPECT_EQ(raisedId(HostArray::charRow("ok")), "");

    std::string out = "kept";
    EXPECT_EQ(platform::scalarTextToUtf8(HostArray::missingString(), out),
              platform::TextStatus::Missing);
    EXPECT_EQ(platform::scalarTextToUtf8(HostArray::scalar(1), out),
              platform::TextStatus::NotScalarText);
    EXPECT_EQ(out, "kept");
}
