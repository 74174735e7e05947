#include "common/text/uxml2.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>

#include "common/base/vector.h"

namespace {

struct Free {
    void operator()(UxmlNode *node) const { uxml_node_free(node); }
};
using Tree = std::unique_ptr<UxmlNode, Free>;

const std::string LINE = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

Tree readBytes(const std::string &bytes)
{
    std::string copy = bytes.empty() ? std::string(1, '\0') : bytes;
    FILE *in = fmemopen(copy.data(), copy.size(), "rb");
    if (bytes.empty())
        getc(in);
    Tree tree(uxml_read(in));
    fclose(in);
    return tree;
}

// The tree on one line: name[attribute=value]'text'(child child); "null" for none. Not for deep
// trees.
std::string shape(const UxmlNode *node)
{
    if (node == nullptr)
        return "null";
    std::string result = uxml_name(node);
    for (const UxmlAttribute *attribute : vec_each<const UxmlAttribute>(uxml_attributes(node)))
        result +=
            "[" + std::string(uxml_attr_name(attribute)) + "=" + uxml_attr_value(attribute) + "]";
    if (*uxml_text(node) != '\0')
        result += "'" + std::string(uxml_text(node)) + "'";
    std::string children;
    for (const UxmlNode *child : vec_each<const UxmlNode>(uxml_children(node)))
        children += (children.empty() ? "" : " ") + shape(child);
    return children.empty() ? result : result + "(" + children + ")";
}

// The tree of a document that has this text after its first line.
std::string readShape(const std::string &rest)
{
    return shape(readBytes(LINE + rest).get());
}

struct Written {
    std::string bytes;
    bool ok;
};

Written write(const UxmlNode *root)
{
    char *data = nullptr;
    size_t size = 0;
    FILE *out = open_memstream(&data, &size);
    const bool ok = uxml_write(out, root);
    fclose(out);
    Written result = {std::string(data, size), ok};
    free(data);
    return result;
}

std::string written(const UxmlNode *root)
{
    const Written result = write(root);
    EXPECT_TRUE(result.ok);
    return result.bytes;
}

UxmlNode *addChild(UxmlNode *parent, const char *name, const char *text = "")
{
    UxmlNode *child = uxml_node_new(name);
    uxml_set_text(child, text);
    uxml_add_child(parent, child);
    return child;
}

std::string repeated(const std::string &text, int count)
{
    std::string result;
    for (int i = 0; i < count; ++i)
        result += text;
    return result;
}

// ---- The first line and what may follow it ----------------------------------------------------

TEST(XmlDocument, BeginsWithAnXmlDeclarationOfVersionOne)
{
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"<?xml version=\"1.0\"?>\n<a />", "a"},
        {"<?xml version=\"1.7 what ever\n<a />", "a"},
        {"<?xml version=\"1.\n<a />", "a"},
        {"<?xml version=\"1.0\"?>\r\n<a />", "a"},
        {"<?xml version=\"2.0\"?>\n<a />", "null"},
        {"<?xml version='1.0'?>\n<a />", "null"},
        {"<?xml  version=\"1.0\"?>\n<a />", "null"},
        {"\xEF\xBB\xBF<?xml version=\"1.0\"?>\n<a />", "null"},
        {"\n<?xml version=\"1.0\"?>\n<a />", "null"},
        {"<a />", "null"},
        {"<?xml version=\"1", "null"},
        {"", "null"},
    };
    for (const auto &[bytes, expected] : rows)
        EXPECT_EQ(shape(readBytes(bytes).get()), expected) << bytes;
}

TEST(XmlDocument, IsNotReadWhenItsDeclarationSharesALineWithTheRoot)
{
    EXPECT_EQ(shape(readBytes("<?xml version=\"1.0\"?><a />").get()), "null");
    EXPECT_EQ(shape(readBytes("<?xml version=\"1.0\"?><a />\n<b />").get()), "b");
}

// The characters after the limit are read as the next line.
TEST(XmlDocument, FirstLineHasAtMost255CharactersWithItsEnd)
{
    std::string line = "<?xml version=\"1.0\"?>";
    line.resize(254, ' ');
    EXPECT_EQ(shape(readBytes(line + "\n<a />").get()), "a");
    EXPECT_EQ(shape(readBytes(line + " \n<a />").get()), "null");
    EXPECT_EQ(shape(readBytes(line + " <a />").get()), "a");
    EXPECT_EQ(shape(readBytes(line + "<a />").get()), "null");
}

TEST(XmlDocument, RootStandsAtTheVeryBeginningOfTheSecondLine)
{
    EXPECT_EQ(readShape("\n<a />"), "null");
    EXPECT_EQ(readShape(" <a />"), "null");
    EXPECT_EQ(readShape("x<a />"), "null");
    EXPECT_EQ(readShape("&lt;a />"), "null");
    EXPECT_EQ(readShape(""), "null");
}

TEST(XmlDocument, OnlyCommentsMayComeBeforeTheRoot)
{
    EXPECT_EQ(readShape("<!-- one --><!-- two\n --><a />"), "a");
    EXPECT_EQ(readShape("<!-- one -->\n<a />"), "null");
    EXPECT_EQ(readShape("<!-- one --> <a />"), "null");
}

TEST(XmlDocument, WhatFollowsTheRootIsNotLookedAt)
{
    EXPECT_EQ(readShape("<a />\n<b></c>"), "a");
    EXPECT_EQ(readShape("<a></a><<<"), "a");
}

// ---- Tags -------------------------------------------------------------------------------------

TEST(XmlTags, AttributesMayStandInBothQuotes)
{
    EXPECT_EQ(readShape("<a x='1' y=\"2\"/>"), "a[x=1][y=2]");
    EXPECT_EQ(readShape("<a x='\"' y=\"'\" z=''/>"), "a[x=\"][y='][z=]");
    EXPECT_EQ(readShape("<a x='1'y='2'/>"), "a[x=1][y=2]");
    EXPECT_EQ(readShape("<a\t\n\v\f\r x='1\n 2' />"), "a[x=1\n 2]");
    EXPECT_EQ(readShape("<a x='1' x='2' ></a>"), "a[x=1][x=2]");
    EXPECT_EQ(readShape("<a x='<b> = / >'/>"), "a[x=<b> = / >]");
}

TEST(XmlTags, AttributeWithoutEqualsSignHasAnEmptyValue)
{
    EXPECT_EQ(readShape("<a x y='2' z></a>"), "a[x=][y=2][z=]");
    EXPECT_EQ(readShape("<a x />"), "a[x=]");
}

TEST(XmlTags, ValueFollowsItsEqualsSignAtOnceAndInQuotes)
{
    EXPECT_EQ(readShape("<a x=1 />"), "null");
    EXPECT_EQ(readShape("<a x= '1' />"), "null");
    EXPECT_EQ(readShape("<a x ='1' />"), "null");
    EXPECT_EQ(readShape("<a x=/>"), "null");
    EXPECT_EQ(readShape("<a x=&quot;1&quot; />"), "null");
}

TEST(XmlTags, SlashDoesNotEndAName)
{
    EXPECT_EQ(readShape("<a><b/></a>"), "null");
    EXPECT_EQ(readShape("<a><b/></b/></a>"), "a(b/)");
    EXPECT_EQ(readShape("<a><b /></a>"), "a(b)");
    EXPECT_EQ(readShape("<a x/></a>"), "a[x/=]");
    EXPECT_EQ(readShape("<a/b c/d='e'/>"), "a/b[c/d=e]");
    EXPECT_EQ(readShape("</a></a>"), "null");
    EXPECT_EQ(readShape("</a><//a>"), "/a");
}

TEST(XmlTags, SlashMustBeFollowedByTheEndOfTheTag)
{
    EXPECT_EQ(readShape("<a / >"), "null");
    EXPECT_EQ(readShape("<a /b>"), "null");
    EXPECT_EQ(readShape("<a /&gt;"), "null");
    EXPECT_EQ(readShape("<a x='1'/ >"), "null");
}

TEST(XmlTags, NameMayFollowWhiteSpaceButMayNotBeEmpty)
{
    EXPECT_EQ(readShape("< \n a ></\t a>"), "a");
    EXPECT_EQ(readShape("<></>"), "null");
    EXPECT_EQ(readShape("<a><></a>"), "null");
    EXPECT_EQ(readShape("<a><=></a>"), "null");
    EXPECT_EQ(readShape("< ='1'></>"), "null");
    EXPECT_EQ(readShape("<a ='1' />"), "null");
    EXPECT_EQ(readShape("<a <b />"), "null");
    EXPECT_EQ(readShape("<a=></a>"), "null");
    EXPECT_EQ(readShape("<a<b /></a>"), "null");
}

TEST(XmlTags, NameHoldsAnyOtherCharacter)
{
    EXPECT_EQ(readShape("<a:b-c.d_\xC3\xA4\"'!? 1='2' \"='3' />"),
              "a:b-c.d_\xC3\xA4\"'!?[1=2][\"=3]");
    EXPECT_EQ(readShape("<a>< /b><//b></a>"), "a(/b)");
    EXPECT_EQ(readShape("<a><!b></!b><!-b ></!-b></a>"), "a(!b !-b)");
}

TEST(XmlTags, ClosingTagRepeatsTheNameAndNothingElse)
{
    EXPECT_EQ(readShape("<a></b>"), "null");
    EXPECT_EQ(readShape("<a></b></a>"), "null");
    EXPECT_EQ(readShape("<a></></a>"), "null");
    EXPECT_EQ(readShape("<a></A>"), "null");
    EXPECT_EQ(readShape("<a></ab>"), "null");
    EXPECT_EQ(readShape("<ab></a>"), "null");
    EXPECT_EQ(readShape("<a></a >"), "null");
    EXPECT_EQ(readShape("<a></a=>"), "null");
    EXPECT_EQ(readShape("<a></>"), "null");
    EXPECT_EQ(readShape("<a><b></a></b>"), "null");
    EXPECT_EQ(readShape("<a x='1'></a>"), "a[x=1]");
}

TEST(XmlTags, AFailingChildFailsItsParents)
{
    EXPECT_EQ(readShape("<a><b /><c><d x=1 /></c></a>"), "null");
}

TEST(XmlTags, DeclarationsAndInstructionsAreNothingSpecial)
{
    EXPECT_EQ(readShape("<!DOCTYPE a>\n<a />"), "null");
    EXPECT_EQ(readShape("<?xml version='1.0'?>\n<a />"), "null");
    EXPECT_EQ(readShape("<a><![CDATA[x]]></a>"), "null");
    EXPECT_EQ(readShape("<?b ?></?b>"), "?b[?=]");
}

// ---- Text -------------------------------------------------------------------------------------

TEST(XmlText, JoinsThePiecesBetweenChildrenAndStripsTheEnds)
{
    EXPECT_EQ(readShape("<a>  x &lt; y  <b />z </a>"), "a'x < y  z'(b)");
    EXPECT_EQ(readShape("<a>\n\t<b> 1\v\f\r2 </b>\n\t<c>3</c> 4 </a>"), "a'4'(b'1\v\f\r2' c'3')");
    EXPECT_EQ(readShape("<a>1<b>2<c>3</c>4<d>5</d></b>6</a>"), "a'16'(b'24'(c'3' d'5'))");
    EXPECT_EQ(readShape("<a>x <b /> <c /> y</a>"), "a'x   y'(b c)");
}

TEST(XmlText, OfWhiteSpaceAloneIsEmpty)
{
    EXPECT_EQ(readShape("<a> \t\n\v\f\r</a>"), "a");
    EXPECT_EQ(readShape("<a> <b> </b> </a>"), "a(b)");
}

TEST(XmlText, HoldsWhatIsMarkupElsewhere)
{
    EXPECT_EQ(readShape("<a>x=\"1\" / > 'y'</a>"), "a'x=\"1\" / > 'y''");
}

// ---- Entities ---------------------------------------------------------------------------------

TEST(XmlEntities, FiveAreKnown)
{
    EXPECT_EQ(readShape("<a x='&gt;&lt;&quot;&apos;&amp;'>&gt;&lt;&quot;&apos;&amp;</a>"),
              "a[x=><\"'&]'><\"'&'");
    EXPECT_EQ(readShape("<a&lt;&amp; &gt;='1'></a&lt;&amp;>"), "a<&[>=1]");
    EXPECT_EQ(readShape("<a>&amp;lt;</a>"), "a'&lt;'");
}

TEST(XmlEntities, UnknownOnesReadAsATilde)
{
    EXPECT_EQ(readShape("<a>&foo;</a>"), "a'~'");
    EXPECT_EQ(readShape("<a>&;&#65;&LT;&lt ;&amp&gt;</a>"), "a'~~~~~'");
    EXPECT_EQ(readShape("<a x='&foo;' />"), "a[x=~]");
}

TEST(XmlEntities, TakeAtMostTenCharacters)
{
    EXPECT_EQ(readShape("<a>&123456789;x</a>"), "a'~x'");
    EXPECT_EQ(readShape("<a>&1234567890;x</a>"), "a'~;x'");
    EXPECT_EQ(readShape("<a>&gt</a>345678</a>"), "a'~78'");
}

TEST(XmlEntities, DecodedCharactersAreNoMarkup)
{
    EXPECT_EQ(readShape("<a x='&apos;'>&lt;/a></a>"), "a[x=']'</a>'");
    EXPECT_EQ(readShape("<a></a&gt;"), "null");
}

TEST(XmlEntities, CutOffByTheEndOfTheInputMakeItNull)
{
    EXPECT_EQ(readShape("<a>&"), "null");
    EXPECT_EQ(readShape("<a>&lt"), "null");
    EXPECT_EQ(readShape("<a x='&"), "null");
    EXPECT_EQ(readShape("<a&"), "null");
    EXPECT_EQ(readShape("<a></a&"), "null");
}

// ---- Comments ---------------------------------------------------------------------------------

TEST(XmlComments, AreSkippedWhereverACharacterIsRead)
{
    const std::string c = "<!-- > ' \" </a> & -->";
    const std::string file = c + "<" + c + "a" + c + "b" + c + " " + c + "x" + c + "y" + c + "=" +
                             c + "'" + c + "1" + c + "2" + c + "'" + c + " " + c + "z" + c + ">" +
                             c + "t" + c + "&l" + c + "t;" + c + "<" + c + "d" + c + " /" + c +
                             ">" + c + "<" + c + "/" + c + "ab" + c + ">";
    EXPECT_EQ(readShape(file), "ab[xy=12][z=]'t<'(d)");
}

TEST(XmlComments, EndWithTwoDashesAndAGreaterSign)
{
    EXPECT_EQ(readShape("<a>1<!---->2<!-- - -- -> >--->3</a>"), "a'123'");
    EXPECT_EQ(readShape("<a>1<!--->2-->3</a>"), "a'13'");
    EXPECT_EQ(readShape("<a>1<!-->2-->3</a>"), "a'13'");
    EXPECT_EQ(readShape("<a>1<!--<!-- -->2</a>"), "a'12'");
    EXPECT_EQ(readShape("<a>1<!-- --</a>"), "null");
    EXPECT_EQ(readShape("<a>1<!--"), "null");
}

TEST(XmlComments, DoNotSeparateNames)
{
    EXPECT_EQ(readShape("<a<!-- -->b></a<!-- -->b>"), "ab");
    EXPECT_EQ(readShape("<<!-- -->a></a>"), "a");
}

TEST(XmlComments, HideWhiteSpaceNeitherBeforeNorBehindAText)
{
    EXPECT_EQ(readShape("<a> <!-- --> 1 <!-- --> </a>"), "a'1'");
}

// ---- Hostile input ----------------------------------------------------------------------------

const char SMALL[] = "<!-- c --><a x='1' y>t&amp;<b /><c z=\"&lt;\"> u <!-- d --></c></a>";

TEST(XmlHostile, EveryTruncationIsNull)
{
    const std::string whole = LINE + SMALL;
    for (size_t size = 0; size < whole.size(); ++size)
        EXPECT_EQ(shape(readBytes(whole.substr(0, size)).get()), "null") << size;
    EXPECT_EQ(shape(readBytes(whole).get()), "a[x=1][y=]'t&'(b c[z=<]'u')");
}

// The input is read in blocks; no character may be lost where two of them meet.
TEST(XmlHostile, NothingIsLostWhereBlocksMeet)
{
    const size_t block = 65536;
    const std::string small = SMALL;
    for (size_t split = 0; split <= small.size(); ++split) {
        const std::string filler(block - LINE.size() - 7 - split, '-');
        ASSERT_EQ(readShape("<!--" + filler + "-->" + small), "a[x=1][y=]'t&'(b c[z=<]'u')")
            << split;
    }
}

TEST(XmlHostile, ZeroByteEndsTheInputOutsideOfComments)
{
    const std::string zero(1, '\0');
    EXPECT_EQ(readShape("<a>" + zero + "</a>"), "null");
    EXPECT_EQ(readShape("<a x='" + zero + "'></a>"), "null");
    EXPECT_EQ(readShape("<a" + zero + "></a>"), "null");
    EXPECT_EQ(readShape("<a>&" + zero + ";</a>"), "null");
    EXPECT_EQ(readShape("<a>1<!--" + zero + "-->2</a>" + zero), "a'12'");
    EXPECT_EQ(shape(readBytes("<?xml version=\"1.0" + zero + "\n<a />").get()), "a");
}

// The value ends with the input; the rest of the tag is where the next block begins.
TEST(XmlHostile, NothingIsReadBehindAZeroByteInALaterBlock)
{
    std::string file = LINE + "<a x='" + std::string(1, '\0');
    file.resize(65536, 'v');
    EXPECT_EQ(shape(readBytes(file + "'/>").get()), "null");
    EXPECT_EQ(shape(readBytes(file + "/>").get()), "null");
}

TEST(XmlHostile, BinaryIsNull)
{
    std::string bytes;
    for (int i = 0; i < 4096; ++i)
        bytes += static_cast<char>(i * 7 + i / 256);
    EXPECT_EQ(shape(readBytes(bytes).get()), "null");
    EXPECT_EQ(readShape("<" + bytes), "null");
}

TEST(XmlHostile, ReadErrorIsNull)
{
    FILE *directory = fopen("/", "r");
    ASSERT_NE(directory, nullptr);
    EXPECT_EQ(uxml_read(directory), nullptr);
    fclose(directory);
}

TEST(XmlHostile, DepthCostsNoStack)
{
    const int depth = 300000;
    const Tree tree = readBytes(LINE + repeated("<a>", depth) + "x" + repeated("</a>", depth));
    int found = 0;
    const UxmlNode *innermost = nullptr;
    for (const UxmlNode *node = tree.get(); node != nullptr; ++found) {
        innermost = node;
        node = static_cast<const UxmlNode *>(vec_elementAt(uxml_children(node), 0));
    }
    EXPECT_EQ(found, depth);
    ASSERT_NE(innermost, nullptr);
    EXPECT_STREQ(uxml_text(innermost), "x");
}

TEST(XmlHostile, DepthThatIsNeverClosedIsNull)
{
    EXPECT_EQ(readShape(repeated("<a x='1'>t", 300000)), "null");
}

TEST(XmlHostile, AttributesAreKeptHoweverMany)
{
    const uint32_t count = 500000;
    const Tree tree = readBytes(LINE + "<a" + repeated(" b", count - 1) + " last='1'/>");
    ASSERT_NE(tree, nullptr);
    Vector *attributes = uxml_attributes(tree.get());
    ASSERT_EQ(vec_size(attributes), count);
    EXPECT_STREQ(uxml_attr_name(static_cast<UxmlAttribute *>(vec_top(attributes))), "last");
}

TEST(XmlHostile, NamesValuesAndTextsAreKeptHoweverLong)
{
    const std::string large(3000000, 'n');
    const Tree tree = readBytes(LINE + "<" + large + " " + large + "='" + large + "'>" + large +
                                "</" + large + ">");
    EXPECT_EQ(shape(tree.get()), large + "[" + large + "=" + large + "]'" + large + "'");
}

int64_t peakMemory()
{
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss * int64_t{1024};
}

// The growth of the peak of memory in use when a file is read, in sizes of the file.
double memoryToRead(const std::string &file)
{
    const int64_t before = peakMemory();
    readBytes(file);
    return static_cast<double>(peakMemory() - before) / static_cast<double>(file.size());
}

TEST(XmlHostile, MemoryIsASmallMultipleOfTheFile)
{
    std::string attributes = "<a";
    for (int i = 0; i < 500000; ++i)
        attributes += " a" + std::to_string(100000 + i) + "='x'";
    // One after the other, the cheapest first, because the peak only rises.
    EXPECT_LT(memoryToRead(LINE + "<a>" + repeated("<!-- -->", 1000000) + "</a>"), 2);
    EXPECT_LT(memoryToRead(LINE + "<a x='" + std::string(10000000, 'v') + "'/>"), 8);
    EXPECT_LT(memoryToRead(LINE + attributes + "/>"), 20);
}

// ---- The tree ---------------------------------------------------------------------------------

TEST(XmlTree, NewNodeHasANameAndNothingElse)
{
    char name[] = "name";
    const Tree node(uxml_node_new(name));
    name[0] = 'X';
    EXPECT_STREQ(uxml_name(node.get()), "name");
    EXPECT_STREQ(uxml_text(node.get()), "");
    EXPECT_EQ(vec_size(uxml_children(node.get())), 0u);
    EXPECT_EQ(vec_size(uxml_attributes(node.get())), 0u);
}

TEST(XmlTree, TextIsCopiedAndReplaced)
{
    const Tree node(uxml_node_new("a"));
    char text[] = "one";
    uxml_set_text(node.get(), text);
    text[0] = 'X';
    EXPECT_STREQ(uxml_text(node.get()), "one");
    uxml_set_text(node.get(), uxml_text(node.get()) + 2);
    EXPECT_STREQ(uxml_text(node.get()), "e");
    uxml_set_text(node.get(), "");
    EXPECT_STREQ(uxml_text(node.get()), "");
}

TEST(XmlTree, ChildrenAndAttributesKeepTheirOrder)
{
    const Tree root(uxml_node_new("a"));
    for (const char *name : {"e", "b", "d", "c", "b"}) {
        addChild(root.get(), name);
        uxml_add_attr(root.get(), name, name);
    }
    EXPECT_EQ(shape(root.get()), "a[e=e][b=b][d=d][c=c][b=b](e b d c b)");
}

TEST(XmlTree, VectorsStayTheSameWhenElementsAreAdded)
{
    const Tree root(uxml_node_new("a"));
    const Vector *children = uxml_children(root.get());
    const Vector *attributes = uxml_attributes(root.get());
    addChild(root.get(), "b");
    uxml_add_attr(root.get(), "x", "1");
    EXPECT_EQ(uxml_children(root.get()), children);
    EXPECT_EQ(uxml_attributes(root.get()), attributes);
    EXPECT_EQ(shape(root.get()), "a[x=1](b)");
}

TEST(XmlTree, FreeingAcceptsNull)
{
    uxml_node_free(nullptr);
}

TEST(XmlTree, NullArgumentsAreBrokenContracts)
{
    const Tree node(uxml_node_new("a"));
    const auto text = [](const char *expression, int line) {
        return "^Assertion failed - " + std::string(expression) +
               " != NULL \\(common/uxml2, line " + std::to_string(line) + "\\)\n$";
    };
    const auto exited = testing::ExitedWithCode(1);
    EXPECT_EXIT(uxml_node_new(nullptr), exited, text("name", 10));
    EXPECT_EXIT(uxml_children(nullptr), exited, text("node", 20));
    EXPECT_EXIT(uxml_attributes(nullptr), exited, text("node", 30));
    EXPECT_EXIT(uxml_name(nullptr), exited, text("node", 40));
    EXPECT_EXIT(uxml_text(nullptr), exited, text("node", 50));
    EXPECT_EXIT(uxml_attr_name(nullptr), exited, text("attribute", 60));
    EXPECT_EXIT(uxml_attr_value(nullptr), exited, text("attribute", 70));
    EXPECT_EXIT(uxml_set_text(nullptr, ""), exited, text("node", 80));
    EXPECT_EXIT(uxml_set_text(node.get(), nullptr), exited, text("text", 81));
    EXPECT_EXIT(uxml_add_child(nullptr, node.get()), exited, text("node", 90));
    EXPECT_EXIT(uxml_add_child(node.get(), nullptr), exited, text("child", 91));
    EXPECT_EXIT(uxml_add_attr(nullptr, "", ""), exited, text("node", 100));
    EXPECT_EXIT(uxml_add_attr(node.get(), nullptr, ""), exited, text("name", 101));
    EXPECT_EXIT(uxml_add_attr(node.get(), "", nullptr), exited, text("value", 102));
    EXPECT_EXIT(uxml_write(nullptr, node.get()), exited, text("stream", 110));
    EXPECT_EXIT(uxml_write(stdout, nullptr), exited, text("root", 111));
    EXPECT_EXIT(uxml_read(nullptr), exited, text("stream", 200));
}

TEST(XmlTree, NodeIsNotItsOwnChild)
{
    const Tree node(uxml_node_new("a"));
    EXPECT_EXIT(uxml_add_child(node.get(), node.get()), testing::ExitedWithCode(1),
                "^Assertion failed - child != node \\(common/uxml2, line 92\\)\n$");
}

// ---- Writing ----------------------------------------------------------------------------------

TEST(XmlWriting, PutsChildrenOfAnElementWithAttributesOnLinesOfTheirOwn)
{
    const Tree root(uxml_node_new("r"));
    uxml_add_attr(root.get(), "k", "v");
    addChild(root.get(), "c", "t");
    EXPECT_EQ(written(root.get()), LINE + "<r k=\"v\">\n  <c>t</c>\n</r>\n");
}

TEST(XmlWriting, KeepsAnElementWithoutAttributesOnOneLine)
{
    const Tree root(uxml_node_new("r"));
    UxmlNode *child = addChild(root.get(), "c", "t");
    addChild(child, "d", "u");
    addChild(addChild(child, "e"), "f", "v");
    EXPECT_EQ(written(root.get()),
              LINE + "<r>\n  <c>t    <d>u</d>\n    <e>      <f>v</f>\n</e>\n</c>\n</r>\n");
}

TEST(XmlWriting, PutsTheTextOfTheRootAndOfAnElementWithAttributesBeforeALineEnd)
{
    const Tree root(uxml_node_new("r"));
    uxml_set_text(root.get(), "text");
    uxml_add_attr(addChild(root.get(), "c", "t"), "k", "v");
    EXPECT_EQ(written(root.get()), LINE + "<r>text\n  <c k=\"v\">t\n  </c>\n</r>\n");
}

TEST(XmlWriting, ClosesAnEmptyElementAtOnce)
{
    const Tree root(uxml_node_new("r"));
    EXPECT_EQ(written(root.get()), LINE + "<r/>\n");
    uxml_add_attr(root.get(), "k", "");
    uxml_add_attr(root.get(), "l", "m");
    EXPECT_EQ(written(root.get()), LINE + "<r k=\"\" l=\"m\"/>\n");
    addChild(root.get(), "c");
    EXPECT_EQ(written(root.get()), LINE + "<r k=\"\" l=\"m\">\n  <c/>\n</r>\n");
}

TEST(XmlWriting, EscapesNamesValuesAndTexts)
{
    const Tree root(uxml_node_new("<n>&"));
    uxml_add_attr(root.get(), "\"a'", "<\"v'\">");
    uxml_set_text(root.get(), "&amp; 'x' \"\n\xC3\xA4>");
    EXPECT_EQ(written(root.get()), LINE +
                                       "<&lt;n&gt;&amp; &quot;a'=\"&lt;&quot;v'&quot;&gt;\">"
                                       "&amp;amp; 'x' &quot;\n\xC3\xA4&gt;\n</&lt;n&gt;&amp;>\n");
}

TEST(XmlWriting, WritesWhatIsLargerThanABlock)
{
    const std::string large = std::string(200000, 'v') + "&";
    const Tree root(uxml_node_new("r"));
    uxml_add_attr(root.get(), "k", large.c_str());
    for (int i = 0; i < 5000; ++i)
        addChild(root.get(), "c", "some text");
    EXPECT_EQ(written(root.get()), LINE + "<r k=\"" + std::string(200000, 'v') + "&amp;\">\n" +
                                       repeated("  <c>some text</c>\n", 5000) + "</r>\n");
}

// Depth is indented, so a deep tree makes a large file. The stack is made small instead.
void withSmallStack(void *(*function)(void *), void *argument)
{
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 262144), 0);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, function, argument), 0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    pthread_attr_destroy(&attributes);
}

struct Writing {
    const UxmlNode *root;
    std::string bytes;
};

void *writeInto(void *argument)
{
    auto *writing = static_cast<Writing *>(argument);
    writing->bytes = written(writing->root);
    return nullptr;
}

TEST(XmlWriting, DepthCostsNoStack)
{
    const int depth = 4000;
    const Tree root(uxml_node_new("a"));
    UxmlNode *node = root.get();
    for (int i = 1; i < depth; ++i)
        node = addChild(node, "a");
    uxml_set_text(node, "x");
    std::string expected = LINE + "<a>\n";
    for (int i = 1; i < depth; ++i)
        expected += std::string(2 * static_cast<size_t>(i), ' ') + "<a>";
    expected += "x" + repeated("</a>\n", depth);
    Writing writing = {root.get(), ""};
    withSmallStack(writeInto, &writing);
    EXPECT_TRUE(writing.bytes == expected); // too large to be shown
}

TEST(XmlWriting, FullDiskIsNoticed)
{
    const Tree root(uxml_node_new("r"));
    FILE *full = fopen("/dev/full", "w");
    ASSERT_NE(full, nullptr);
    EXPECT_FALSE(uxml_write(full, root.get()));
    fclose(full);
}

// A stream that takes `room` bytes and counts the writes after that.
struct Failing {
    size_t room;
    int refused;
};

ssize_t writeFailing(void *cookie, const char *, size_t size)
{
    auto *failing = static_cast<Failing *>(cookie);
    if (size > failing->room) {
        ++failing->refused;
        return 0;
    }
    failing->room -= size;
    return static_cast<ssize_t>(size);
}

// False, and no further write after the one that failed.
void expectWriteFails(const UxmlNode *root, size_t room)
{
    Failing failing = {room, 0};
    FILE *out = fopencookie(&failing, "w", {nullptr, writeFailing, nullptr, nullptr});
    setvbuf(out, nullptr, _IONBF, 0);
    EXPECT_FALSE(uxml_write(out, root));
    EXPECT_EQ(failing.refused, 1);
    fclose(out);
}

TEST(XmlWriting, EndsWithTheFirstWriteThatFailsAndCanBeRepeated)
{
    const Tree root(uxml_node_new("r"));
    UxmlNode *node = root.get();
    for (int i = 0; i < 500; ++i) {
        uxml_add_attr(node, "k", "v");
        node = addChild(node, "c", "text");
    }
    const std::string whole = written(root.get());
    for (size_t room = 0; room < whole.size(); room += 65536) {
        SCOPED_TRACE(room);
        expectWriteFails(root.get(), room);
    }
    EXPECT_EQ(written(root.get()), whole);
}

// The length of the root's name moves a child's line over the point where the first block is full.
TEST(XmlWriting, EndsWithTheFirstWriteThatFailsWhateverIsBeingWritten)
{
    const std::string line = "  <c k=\"v\">1&amp;2\n  </c>\n";
    for (size_t shift = 1; shift <= line.size(); ++shift) {
        SCOPED_TRACE(shift);
        const Tree root(uxml_node_new(std::string(shift, 'r').c_str()));
        for (size_t size = 0; size < 3 * 65536; size += line.size())
            uxml_add_attr(addChild(root.get(), "c", "1&2"), "k", "v");
        expectWriteFails(root.get(), 65536);
    }
}

// ---- The suite's files ------------------------------------------------------------------------

// The page docs/xml-files.md names this test; the two files are its examples.
TEST(XmlFormat, DeviceCatalogueIsPinned)
{
    const std::string file = "<deviceSupport>\n"
                             "  <!-- the classic parts -->\n"
                             "  <family title=\"ORB\">\n"
                             "    <device name=\"16Z505\" />\n"
                             "    <device name='16Z876A' alias=\"16Z876\"/>\n"
                             "  </family>\n"
                             "  <family title=\"ORB18\">\n"
                             "    <device name=\"18Z4520\"/>\n"
                             "  </family>\n"
                             "</deviceSupport>\n";
    EXPECT_EQ(readShape(file), "deviceSupport(family[title=ORB](device[name=16Z505] "
                               "device[name=16Z876A][alias=16Z876]) "
                               "family[title=ORB18](device[name=18Z4520]))");
}

TEST(XmlFormat, ManifestIsPinned)
{
    const Tree package(uxml_node_new("package"));
    UxmlNode *content = addChild(package.get(), "content");
    uxml_add_attr(content, "datestamp", "1700000000");
    UxmlNode *file = addChild(content, "file");
    uxml_add_attr(file, "name", "./bin/qzm-cc");
    addChild(file, "hash", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    const std::string expected = "<package>\n"
                                 "  <content datestamp=\"1700000000\">\n"
                                 "    <file name=\"./bin/qzm-cc\">\n"
                                 "      <hash>e3b0c44298fc1c149afbf4c8996fb924"
                                 "27ae41e4649b934ca495991b7852b855</hash>\n"
                                 "    </file>\n"
                                 "  </content>\n"
                                 "</package>\n";
    EXPECT_EQ(written(package.get()), LINE + expected);
    EXPECT_EQ(readShape(expected), shape(package.get()));
}

TEST(XmlFormat, WhatIsWrittenReadsBackAsTheSameTree)
{
    const Tree root(uxml_node_new("a/<b>\"&'"));
    uxml_add_attr(root.get(), "x&/", " v\n<&>\"' ");
    uxml_set_text(root.get(), "one <!-- no comment --> &amp;  two");
    UxmlNode *child = addChild(root.get(), "c", "&#65; ~ ' \"");
    uxml_add_attr(addChild(child, "d"), "e", "");
    addChild(addChild(root.get(), "f"), "g", ">");
    const std::string bytes = written(root.get());
    const Tree again = readBytes(bytes);
    EXPECT_EQ(shape(again.get()), shape(root.get()));
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(written(again.get()), bytes);
}

// The writer's form of an element that has only a name is a name with a slash to the reader.
TEST(XmlFormat, ElementWithNothingButANameIsNotReadBack)
{
    const Tree root(uxml_node_new("a"));
    EXPECT_EQ(shape(readBytes(written(root.get())).get()), "null");
}

} // namespace
