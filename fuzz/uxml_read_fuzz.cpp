// Reads the bytes as an XML file. The result holds only names and texts that can be read. When it
// is written it reads back as the same, unless the writer cannot express it.
#include <cstddef>
#include <cstdint>

#include "fuzz/uxml_trees.h"

static const size_t DEEPEST = 200; // the indentation of a deeper tree costs too much

static void requireReadNames(const UxmlNode *node)
{
    if (!isName(uxml_name(node)) || !isTrimmed(uxml_text(node)))
        abort();
    for (const UxmlAttribute *attribute : vec_each<const UxmlAttribute>(uxml_attributes(node))) {
        if (!isName(uxml_attr_name(attribute)) || *uxml_attr_name(attribute) == '/')
            abort();
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    UxmlNode *root = treeRead(data, size);
    if (root == nullptr)
        return 0;
    bool readable = true;
    for (const TreeElement &element : treeElements(root)) {
        requireReadNames(element.node);
        readable = readable && isReadable(element.node) && element.depth < DEEPEST;
    }
    if (readable)
        treeRequireRoundTrip(root);
    uxml_node_free(root);
    return 0;
}
