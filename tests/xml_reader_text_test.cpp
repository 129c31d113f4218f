#include "tools/replay/xml_reader.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

namespace orvel::replay {
namespace {

/// An element and all in it as one line: <name attribute=value>text[children].
std::wstring Shown(const Node& node)
{
    std::wstring shown = L"<" + std::wstring(node.name);
    for (const auto& [name, value] : node.attributes) {
        shown.append(L" ").append(name).append(L"=").append(value);
    }
    shown.append(L">").append(node.text);
    for (const Node& child : node.children) {
        shown += L"[" + Shown(child) + L"]";
    }
    return shown;
}

std::string Repeated(std::string_view text, size_t times)
{
    std::string repeated;
    while (times-- != 0) {
        repeated += text;
    }
    return repeated;
}

std::string Attributes(int count)
{
    std::string attributes;
    for (int i = 0; i < count; ++i) {
        attributes += " a" + std::to_string(i) + "=''";
    }
    return attributes;
}

TEST(XmlReader, ReadsNamesAttributesTextsAndChildren)
{
    const std::pair<std::string, const wchar_t*> kCases[] = {
        {"<?xml version='1.0'?>\n<!-- c --><a/>\n<!-- d -->", L"<a>"},
        {"<a b='1' c = \"'\" >x<b/>y<!-- z --><c>1</c></a >", L"<a b=1 c='>xy[<b>][<c>1]"},
        {"<a b='&lt;&#x41;&quot;\t\n'>&amp;<![CDATA[<&amp;>]]>&gt;&apos;</a>", L"<a b=<A\"  >&<&amp;>>'"},
        {"<a>1\r\n2\r3&#13;\n4&#13;5</a>", L"<a>1\n2\n3\n4\r5"},
        {"<a>\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80&#x1F600;</a>", L"<a>\u00E4\u20AC\U0001F600\U0001F600"},
        {"<p:a xmlns:p='urn:orvel:replay' xmlns='u' p:b='1' b='2'><c/><p:c xmlns:p='u'/><p:c/></p:a>",
         L"<replay:a replay:b=1 b=2>[<c>][<c>][<replay:c>]"},
        {"<a xmlns='urn:orvel:replay' b='1'/>", L"<replay:a b=1>"},
        {Repeated("<a>", 64) + Repeated("</a>", 64), nullptr},
        {"<a" + Attributes(100) + "/>", nullptr},
    };
    for (const auto& [text, expected] : kCases) {
        try {
            Arena arena;
            const Node root = ReadDocument(text, arena);
            EXPECT_TRUE(expected == nullptr || Shown(root) == expected) << text << ": " << Shown(root);
        } catch (const TextError& error) {
            ADD_FAILURE() << text << ": " << error.Text();
        }
    }
}

TEST(XmlReader, RefusesWhatIsNotWellFormedOrTooLargeWithItsPlace)
{
    const std::tuple<std::string, size_t, size_t> kCases[] = {
        {"", 1, 1},
        {"a", 1, 1},
        {"<!DOCTYPE a><a/>", 1, 1},
        {"<a/>\n<b/>", 2, 1},
        {"<a>\n<b></a>", 2, 4},
        {"</a>", 1, 2},
        {"<a>\n\xC3\xA4&x;</a>", 2, 2},
        {"<a>&#0;</a>", 1, 4},
        {"<a>&#55296;</a>", 1, 4},
        {"<a>&lt</a>", 1, 4},
        {"<a>\xF0\x9F\x98\x80\x01</a>", 1, 6},
        {"<a>\xE4</a>", 1, 4},
        {"<a>\xC0\x80</a>", 1, 4},
        {"<a>\xED\xA0\x80</a>", 1, 4},
        {"<a>1 < 2</a>", 1, 7},
        {"<a b='<'/>", 1, 7},
        {"<a b=1/>", 1, 6},
        {"<a b='1'c='2'/>", 1, 9},
        {"<a b='1' b='2'/>", 1, 10},
        {"<p:a/>", 1, 2},
        {"<a p:b=''/>", 1, 4},
        {"<a><!-- </a>", 1, 4},
        {"<a><![CDATA[ </a>", 1, 4},
        {"<a>\n<b", 2, 3},
        {"<a>\n<b c='", 2, 6},
        {"<a>\n<b>x", 2, 5},
        {Repeated("<a>", 1000000), 1, 193},
        {"<a" + Attributes(1000000), 1, 694},
        {"<a>\n" + std::string(size_t{20} << 20, 'x') + "</a>", 1, 1},
        {"<a>\n" + Repeated("<a/>", size_t{5} << 20) + "</a>", 1, 1},
        {"<a b='" + std::string(size_t{20} << 20, 'x') + "'/>", 1, 1},
    };
    for (const auto& [text, line, column] : kCases) {
        try {
            Arena arena;
            ReadDocument(text, arena);
            ADD_FAILURE() << "no error in: " << text.substr(0, 60);
        } catch (const TextError& error) {
            EXPECT_EQ(std::pair(error.place.line, error.place.column), std::pair(line, column))
                << text.substr(0, 60) << ": " << error.reason;
            EXPECT_FALSE(error.reason.empty());
        }
    }
}

} // namespace
} // namespace orvel::replay
