// The functions that the fuzz targets of the XML files share.
#ifndef FUZZ_UXML_TREES_H
#define FUZZ_UXML_TREES_H

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "common/base/vector.h"
#include "common/text/uxml2.h"

// The file that the writer makes of a tree.
inline std::string treeWritten(const UxmlNode *root)
{
    char *data = nullptr;
    size_t size = 0;
    FILE *out = open_memstream(&data, &size);
    if (!uxml_write(out, root))
        abort();
    fclose(out);
    std::string bytes(data, size);
    free(data);
    return bytes;
}

inline UxmlNode *treeRead(const void *data, size_t size)
{
    FILE *in = fmemopen(const_cast<void *>(data), size, "rb");
    UxmlNode *root = uxml_read(in);
    fclose(in);
    return root;
}

inline bool isWhite(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

inline bool isTrimmed(const char *text)
{
    return *text == '\0' || (!isWhite(*text) && !isWhite(text[strlen(text) - 1]));
}

// Whether the reader could have read the name.
inline bool isName(const char *name)
{
    return *name != '\0' && strpbrk(name, " \t\n\v\f\r=") == nullptr;
}

// The elements of a tree and their depths, the root first, without recursion.
struct TreeElement {
    const UxmlNode *node;
    size_t depth;
};

inline std::vector<TreeElement> treeElements(const UxmlNode *root)
{
    std::vector<TreeElement> elements = {{root, 0}};
    for (size_t i = 0; i < elements.size(); ++i) {
        const size_t depth = elements[i].depth + 1;
        for (const UxmlNode *child : vec_each<const UxmlNode>(uxml_children(elements[i].node)))
            elements.push_back({child, depth});
    }
    return elements;
}

// Whether the reader can read back an element that the writer has written: it has more than a name,
// and its tag does not begin like a closing tag or a comment.
inline bool isReadable(const UxmlNode *node)
{
    const char *name = uxml_name(node);
    return *name != '/' && strncmp(name, "!--", 3) != 0 &&
           (*uxml_text(node) != '\0' || vec_size(uxml_children(node)) != 0 ||
            vec_size(uxml_attributes(node)) != 0);
}

// Aborts unless both trees are the same.
inline void treeRequireEqual(const UxmlNode *one, const UxmlNode *other)
{
    const std::vector<TreeElement> ones = treeElements(one);
    const std::vector<TreeElement> others = treeElements(other);
    if (ones.size() != others.size())
        abort();
    for (size_t i = 0; i < ones.size(); ++i) {
        const UxmlNode *a = ones[i].node;
        const UxmlNode *b = others[i].node;
        Vector *attributes = uxml_attributes(b);
        if (strcmp(uxml_name(a), uxml_name(b)) != 0 || strcmp(uxml_text(a), uxml_text(b)) != 0 ||
            vec_size(uxml_children(a)) != vec_size(uxml_children(b)) ||
            vec_size(uxml_attributes(a)) != vec_size(attributes))
            abort();
        unsigned index = 0;
        for (const UxmlAttribute *x : vec_each<const UxmlAttribute>(uxml_attributes(a))) {
            const auto *y = static_cast<const UxmlAttribute *>(vec_elementAt(attributes, index++));
            if (strcmp(uxml_attr_name(x), uxml_attr_name(y)) != 0 ||
                strcmp(uxml_attr_value(x), uxml_attr_value(y)) != 0)
                abort();
        }
    }
}

// Aborts unless the tree, when written, reads back as the same and is written the same again.
inline void treeRequireRoundTrip(const UxmlNode *root)
{
    const std::string bytes = treeWritten(root);
    UxmlNode *again = treeRead(bytes.data(), bytes.size());
    if (again == nullptr)
        abort();
    treeRequireEqual(root, again);
    if (treeWritten(again) != bytes)
        abort();
    uxml_node_free(again);
}

#endif
