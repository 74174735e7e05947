#include "tests/common/suite/junit_rules.h"

#include <cstdint>
#include <map>
#include <optional>
#include <regex>
#include <vector>

namespace {

struct Element {
    std::string name;
    std::map<std::string, std::string> attributes;
    std::vector<Element> children;
    std::string text;
};

// ---- Characters -------------------------------------------------------------------------------

bool isXmlCharacter(uint32_t c)
{
    return c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) ||
           (c >= 0xE000 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0x10FFFF);
}

// The bytes of the UTF-8 sequence that begins at `at`, or 0 when it is not an XML character.
size_t characterLength(const std::string &text, size_t at)
{
    static const uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const auto first = static_cast<unsigned char>(text[at]);
    if (first < 0x80)
        return isXmlCharacter(first) ? 1 : 0;
    const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC0 || first > 0xF7 || at + length > text.size())
        return 0;
    uint32_t c = first & (0xFFU >> (length + 1));
    for (size_t i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(text[at + i]);
        if ((next & 0xC0) != 0x80)
            return 0;
        c = c << 6 | (next & 0x3FU);
    }
    return c >= smallest[length] && isXmlCharacter(c) ? length : 0;
}

bool hasOnlyXmlCharacters(const std::string &text)
{
    for (size_t at = 0; at < text.size();) {
        const size_t length = characterLength(text, at);
        if (length == 0)
            return false;
        at += length;
    }
    return true;
}

// ---- Well-formedness --------------------------------------------------------------------------

class Reader {
  public:
    explicit Reader(const std::string &text) : text_(text) {}

    std::string complaint; // the first one

    std::optional<Element> document()
    {
        if (!hasOnlyXmlCharacters(text_))
            return complain("a character that XML 1.0 does not have");
        if (!take("<?xml version=\"1.0\" encoding=\"UTF-8\" ?>"))
            return complain("no XML declaration");
        skipBlanks();
        auto root = element();
        skipBlanks();
        if (root && at_ != text_.size())
            return complain("something behind the root element");
        return root;
    }

  private:
    std::nullopt_t complain(const std::string &what)
    {
        if (complaint.empty())
            complaint = what;
        return std::nullopt;
    }

    bool take(const std::string &token)
    {
        if (text_.compare(at_, token.size(), token) != 0)
            return false;
        at_ += token.size();
        return true;
    }

    bool skipBlanks()
    {
        const size_t start = at_;
        while (at_ < text_.size() && std::string(" \t\r\n").find(text_[at_]) != std::string::npos)
            ++at_;
        return at_ != start;
    }

    std::string name()
    {
        const size_t start = at_;
        while (at_ < text_.size() && (isalnum(text_[at_]) || text_[at_] == '-'))
            ++at_;
        return text_.substr(start, at_ - start);
    }

    // Appends the characters that are read to `text`.
    bool characterOrReference(std::string &text)
    {
        static const std::map<std::string, char> entities = {
            {"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}};
        if (text_[at_] != '&') {
            text += text_[at_++];
            return true;
        }
        for (const auto &[entity, character] : entities)
            if (take(entity)) {
                text += character;
                return true;
            }
        complain("an ampersand that is not escaped");
        return false;
    }

    bool attribute(Element &to)
    {
        const std::string key = name();
        if (key.empty() || !take("=\"")) {
            complain("a malformed attribute in " + to.name);
            return false;
        }
        std::string value;
        while (at_ < text_.size() && text_[at_] != '"') {
            if (text_[at_] == '<') {
                complain("\"<\" in an attribute of " + to.name);
                return false;
            }
            if (!characterOrReference(value))
                return false;
        }
        if (!take("\"") || !to.attributes.emplace(key, value).second) {
            complain("an attribute of " + to.name + " that does not end or is there twice");
            return false;
        }
        return true;
    }

    std::optional<Element> element()
    {
        Element result;
        if (!take("<") || (result.name = name()).empty())
            return complain("no element");
        for (;;) {
            const bool separated = skipBlanks();
            if (take("/>"))
                return result;
            if (take(">"))
                return content(result);
            if (!separated)
                return complain("no blank before an attribute of " + result.name);
            if (!attribute(result))
                return std::nullopt;
        }
    }

    std::optional<Element> content(Element &result)
    {
        while (at_ < text_.size()) {
            if (take("</" + result.name + ">"))
                return result;
            if (take("<![CDATA[")) {
                const size_t end = text_.find("]]>", at_);
                if (end == std::string::npos)
                    return complain("a CDATA section that does not end");
                result.text += text_.substr(at_, end - at_);
                at_ = end + 3;
            } else if (text_[at_] == '<') {
                auto child = element();
                if (!child)
                    return std::nullopt;
                result.children.push_back(*child);
            } else if (text_.compare(at_, 3, "]]>") == 0) {
                return complain("\"]]>\" in a text");
            } else if (!characterOrReference(result.text)) {
                return std::nullopt;
            }
        }
        return complain("the element " + result.name + " does not end");
    }

    const std::string &text_;
    size_t at_ = 0;
};

// ---- Schema -----------------------------------------------------------------------------------

// An attribute's name and the form of its value; all are required.
using Attributes = std::map<std::string, std::string>;

const char DECIMAL[] = "[0-9]+(\\.[0-9]+)?";
const char WHOLE[] = "[0-9]+";

std::string attributesComplaint(const Element &element, const Attributes &rules)
{
    for (const auto &[name, value] : element.attributes) {
        const auto rule = rules.find(name);
        if (rule == rules.end())
            return element.name + " has an attribute " + name;
        if (!std::regex_match(value, std::regex(rule->second)))
            return "the attribute " + name + " of " + element.name + " is \"" + value + "\"";
    }
    for (const auto &[name, rule] : rules)
        if (element.attributes.count(name) == 0)
            return element.name + " has no attribute " + name;
    return "";
}

bool isBlank(const std::string &text)
{
    return text.find_first_not_of(" \t\r\n") == std::string::npos;
}

std::string caseComplaint(const Element &element)
{
    if (element.name != "testcase")
        return "an element " + element.name + " in testsuite";
    if (!isBlank(element.text))
        return "text in testcase";
    for (const Element &child : element.children) {
        const Attributes failure = {{"type", "[^]*"}, {"message", "[^]*"}};
        if (child.name != "failure" && child.name != "system-out")
            return "an element " + child.name + " in testcase";
        if (!child.children.empty())
            return "an element in " + child.name;
        std::string complaint =
            attributesComplaint(child, child.name == "failure" ? failure : Attributes());
        if (!complaint.empty())
            return complaint;
    }
    return attributesComplaint(element, {{"time", DECIMAL}, {"name", "[^]+"}});
}

std::string suiteComplaint(const Element &element)
{
    static const Attributes rules = {
        {"name", "[^]+"},
        {"timestamp", "[0-9]{4}-[01][0-9]-[0-3][0-9]T[0-2][0-9]:[0-5][0-9]:[0-6][0-9]Z"},
        {"hostname", "[^]+"},
        {"errors", WHOLE},
        {"tests", WHOLE},
        {"failures", WHOLE},
        {"time", DECIMAL}};
    if (element.name != "testsuite")
        return "the root element is " + element.name;
    if (!isBlank(element.text))
        return "text in testsuite";
    for (const Element &child : element.children)
        if (std::string complaint = caseComplaint(child); !complaint.empty())
            return complaint;
    std::string complaint = attributesComplaint(element, rules);
    if (complaint.empty() &&
        element.attributes.at("tests") != std::to_string(element.children.size()))
        return "the number of tests is wrong";
    return complaint;
}

} // namespace

std::string junitComplaint(const std::string &document)
{
    Reader reader(document);
    const auto root = reader.document();
    return root ? suiteComplaint(*root) : reader.complaint;
}
