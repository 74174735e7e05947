// Takes the bytes as steps that build a tree, writes it, reads that and writes it again: the trees
// and the files are the same.
//
// A step is a line: its first character says what it does, the rest is its string.
//     <NAME   adds an element to the current one and goes into it
//     >       goes back to the parent
//     @NAME   adds an attribute; its value is the next line
//     TEXT    every other line is the current element's text
// A tree that no file can express is changed into one that a file can: names lose white space, '='
// and a beginning like that of a closing tag or a comment, texts lose the white space around them,
// and an element that has only a name gets an attribute.
#include <cstddef>
#include <cstdint>

#include "fuzz/uxml_trees.h"

static const size_t DEEPEST = 200;

struct Steps {
    const uint8_t *at;
    const uint8_t *end;
};

static std::string nextLine(Steps *steps)
{
    std::string line;
    while (steps->at != steps->end && *steps->at != '\n') {
        // A line end inside a string is written as a zero byte here.
        line += *steps->at == '\0' ? '\n' : static_cast<char>(*steps->at);
        ++steps->at;
    }
    if (steps->at != steps->end)
        ++steps->at;
    return line;
}

static std::string asName(const std::string &text)
{
    std::string name;
    for (char c : text) {
        if (!isWhite(c) && c != '=')
            name += c;
    }
    return name.empty() || name[0] == '/' || name.compare(0, 3, "!--") == 0 ? "n" + name : name;
}

static std::string asText(std::string text)
{
    while (!text.empty() && isWhite(text.back()))
        text.pop_back();
    while (!text.empty() && isWhite(text[0]))
        text.erase(0, 1);
    return text;
}

static UxmlNode *buildTree(Steps *steps)
{
    UxmlNode *root = uxml_node_new(asName(nextLine(steps)).c_str());
    std::vector<UxmlNode *> open = {root};
    while (steps->at != steps->end) {
        const std::string line = nextLine(steps);
        const std::string rest = line.empty() ? line : line.substr(1);
        if (line[0] == '<' && open.size() < DEEPEST) {
            UxmlNode *child = uxml_node_new(asName(rest).c_str());
            uxml_add_child(open.back(), child);
            open.push_back(child);
        } else if (line[0] == '>' && open.size() > 1) {
            open.pop_back();
        } else if (line[0] == '@') {
            uxml_add_attr(open.back(), asName(rest).c_str(), nextLine(steps).c_str());
        } else {
            uxml_set_text(open.back(), asText(line).c_str());
        }
    }
    return root;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Steps steps = {data, data + size};
    UxmlNode *root = buildTree(&steps);
    for (const TreeElement &element : treeElements(root)) {
        if (!isReadable(element.node))
            uxml_add_attr(const_cast<UxmlNode *>(element.node), "x", "");
    }
    treeRequireRoundTrip(root);
    uxml_node_free(root);
    return 0;
}
