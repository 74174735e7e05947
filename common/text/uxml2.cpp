#define MODULE "common/uxml2"

#include "common/text/uxml2.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "common/base/exitpath.h"
#include "common/base/memory.h"
#include "common/base/vector.h"
#include "common/trace/qzdebug.h"

// As many slots as the smallest heap block has room for: the first allocation costs no more than
// one slot would.
static constexpr uint32_t FIRST_SLOTS = 3;

static constexpr size_t BLOCK_SIZE = 65536;

// The name follows the record and the value follows the name: most attributes are short, and large
// files have many of them.
struct UxmlAttribute {
    const char *value;
};

// The name follows the record. Most elements lack children, attributes or text, so each of these is
// created when it is first needed.
struct UxmlNode {
    char *text;                   // null: empty
    mutable Vector *children;     // null until there is one or the vector is asked for
    mutable Vector *attributes;   // the same
    mutable const UxmlNode *link; // during a walk: the parent, or the next element to be freed
};

static char *nameOf(UxmlNode *node)
{
    return reinterpret_cast<char *>(node + 1);
}

static const char *nameOf(const UxmlNode *node)
{
    return reinterpret_cast<const char *>(node + 1);
}

static Vector *orNew(Vector **vector)
{
    if (*vector == nullptr)
        *vector = vec_new_size(FIRST_SLOTS, MODULE, __LINE__);
    return *vector;
}

// ---- The tree ---------------------------------------------------------------------------------

UxmlNode *uxml_node_new(const char *name)
{
    TRACE_ENTER("name=\"%s\"", name);
    ASSERT_AT(10, name != NULL);
    const size_t size = strlen(name) + 1;
    UxmlNode *node = static_cast<UxmlNode *>(xmalloc_must(sizeof(UxmlNode) + size));
    memcpy(nameOf(node), name, size);
    return TRACE_RETURN("%p", node);
}

static void freeOne(const UxmlNode *node)
{
    if (node->attributes != nullptr) {
        for (UxmlAttribute *attribute : vec_each<UxmlAttribute>(node->attributes))
            free(attribute);
        vec_destroy(node->attributes);
    }
    vec_destroy(node->children);
    free(node->text);
    free(const_cast<UxmlNode *>(node));
}

// The elements still to be freed are chained by their links, so that the depth costs no stack.
void uxml_node_free(UxmlNode *node)
{
    TRACE_ENTER("node=%p", static_cast<void *>(node));
    if (node != nullptr)
        node->link = nullptr;
    const UxmlNode *next = node;
    while (next != nullptr) {
        const UxmlNode *freed = next;
        next = freed->link;
        if (freed->children != nullptr) {
            for (const UxmlNode *child : vec_each<const UxmlNode>(freed->children)) {
                child->link = next;
                next = child;
            }
        }
        freeOne(freed);
    }
}

Vector *uxml_children(const UxmlNode *node)
{
    TRACE_ENTER("node=%p", static_cast<const void *>(node));
    ASSERT_AT(20, node != NULL);
    return TRACE_RETURN("%p", orNew(&node->children));
}

Vector *uxml_attributes(const UxmlNode *node)
{
    TRACE_ENTER("node=%p", static_cast<const void *>(node));
    ASSERT_AT(30, node != NULL);
    return TRACE_RETURN("%p", orNew(&node->attributes));
}

const char *uxml_name(const UxmlNode *node)
{
    TRACE_ENTER("node=%p", static_cast<const void *>(node));
    ASSERT_AT(40, node != NULL);
    return TRACE_RETURN("\"%s\"", nameOf(node));
}

const char *uxml_text(const UxmlNode *node)
{
    TRACE_ENTER("node=%p", static_cast<const void *>(node));
    ASSERT_AT(50, node != NULL);
    return TRACE_RETURN("\"%s\"", node->text != nullptr ? node->text : "");
}

const char *uxml_attr_name(const UxmlAttribute *attribute)
{
    TRACE_ENTER("attribute=%p", static_cast<const void *>(attribute));
    ASSERT_AT(60, attribute != NULL);
    return TRACE_RETURN("\"%s\"", reinterpret_cast<const char *>(attribute + 1));
}

const char *uxml_attr_value(const UxmlAttribute *attribute)
{
    TRACE_ENTER("attribute=%p", static_cast<const void *>(attribute));
    ASSERT_AT(70, attribute != NULL);
    return TRACE_RETURN("\"%s\"", attribute->value);
}

void uxml_set_text(UxmlNode *node, const char *text)
{
    TRACE_ENTER("node=%p, text=\"%s\"", static_cast<void *>(node), text);
    ASSERT_AT(80, node != NULL);
    ASSERT_AT(81, text != NULL);
    char *old = node->text; // freed last: `text` may be a part of it
    node->text = *text != '\0' ? xstrdup_must(text) : nullptr;
    free(old);
}

void uxml_add_child(UxmlNode *node, UxmlNode *child)
{
    TRACE_ENTER("node=%p, child=%p", static_cast<void *>(node), static_cast<void *>(child));
    ASSERT_AT(90, node != NULL);
    ASSERT_AT(91, child != NULL);
    ASSERT_AT(92, child != node);
    vec_add(orNew(&node->children), child);
}

void uxml_add_attr(UxmlNode *node, const char *name, const char *value)
{
    TRACE_ENTER("node=%p, name=\"%s\", value=\"%s\"", static_cast<void *>(node), name, value);
    ASSERT_AT(100, node != NULL);
    ASSERT_AT(101, name != NULL);
    ASSERT_AT(102, value != NULL);
    const size_t name_size = strlen(name) + 1;
    const size_t value_size = strlen(value) + 1;
    void *block = xmalloc_must(sizeof(UxmlAttribute) + name_size + value_size);
    UxmlAttribute *attribute = static_cast<UxmlAttribute *>(block);
    char *texts = reinterpret_cast<char *>(attribute + 1);
    memcpy(texts, name, name_size);
    memcpy(texts + name_size, value, value_size);
    attribute->value = texts + name_size;
    vec_add(orNew(&node->attributes), attribute);
}

// ---- Output -----------------------------------------------------------------------------------

namespace {
// The output to the stream, collected into blocks.
struct Output {
    FILE *stream;
    size_t used;
    char block[BLOCK_SIZE];
};
} // namespace

static bool flush(Output *out)
{
    const size_t used = out->used;
    out->used = 0;
    return fwrite(out->block, 1, used, out->stream) == used;
}

static bool put(Output *out, const char *bytes, size_t size)
{
    if (size > BLOCK_SIZE - out->used) {
        if (!flush(out))
            return false;
        if (size >= BLOCK_SIZE)
            return fwrite(bytes, 1, size, out->stream) == size;
    }
    memcpy(out->block + out->used, bytes, size);
    out->used += size;
    return true;
}

template <size_t SIZE> static bool put(Output *out, const char (&text)[SIZE])
{
    return put(out, text, SIZE - 1);
}

static bool putIndent(Output *out, uint64_t depth)
{
    static constexpr char BLANKS[] =
        "                                                                ";
    static constexpr size_t WIDTH = sizeof BLANKS - 1;
    uint64_t blanks = 2 * depth;
    for (; blanks > WIDTH; blanks -= WIDTH) {
        if (!put(out, BLANKS, WIDTH))
            return false;
    }
    return put(out, BLANKS, blanks);
}

static bool putEntity(Output *out, char c)
{
    switch (c) {
    case '&':
        return put(out, "&amp;");
    case '<':
        return put(out, "&lt;");
    case '>':
        return put(out, "&gt;");
    default:
        return put(out, "&quot;");
    }
}

static bool putEscaped(Output *out, const char *text)
{
    for (;;) {
        const size_t run = strcspn(text, "&<>\"");
        if (!put(out, text, run))
            return false;
        text += run;
        if (*text == '\0')
            return true;
        if (!putEntity(out, *text++))
            return false;
    }
}

// ---- Writing ----------------------------------------------------------------------------------

static bool hasContent(const UxmlNode *node)
{
    return node->text != nullptr || vec_size(node->children) != 0;
}

static bool writeAttributes(Output *out, const UxmlNode *node)
{
    if (node->attributes == nullptr)
        return true;
    for (const UxmlAttribute *attribute : vec_each<const UxmlAttribute>(node->attributes)) {
        if (!put(out, " ") || !putEscaped(out, reinterpret_cast<const char *>(attribute + 1)) ||
            !put(out, "=\"") || !putEscaped(out, attribute->value) || !put(out, "\""))
            return false;
    }
    return true;
}

// Writes an element up to its first child. An element without attributes is kept on one line with
// its text.
static bool writeStart(Output *out, const UxmlNode *node, uint64_t depth)
{
    if (!putIndent(out, depth) || !put(out, "<") || !putEscaped(out, nameOf(node)) ||
        !writeAttributes(out, node))
        return false;
    if (!hasContent(node))
        return put(out, "/>\n");
    return put(out, ">") && (node->text == nullptr || putEscaped(out, node->text)) &&
           ((depth != 0 && vec_size(node->attributes) == 0) || put(out, "\n"));
}

static bool writeEnd(Output *out, const UxmlNode *node, uint64_t depth)
{
    return (vec_size(node->attributes) == 0 || putIndent(out, depth)) && put(out, "</") &&
           putEscaped(out, nameOf(node)) && put(out, ">\n");
}

// The open elements are linked to their parents, each with an open iterator on its children, so
// that the depth costs no stack.
static bool writeTree(Output *out, const UxmlNode *root)
{
    TRACE_ENTER("root=%p", static_cast<const void *>(root));
    uint64_t depth = 0;
    const UxmlNode *open = hasContent(root) ? root : nullptr;
    bool ok = writeStart(out, root, depth);
    root->link = nullptr;
    if (open != nullptr)
        vec_iterStart(open->children);
    while (ok && open != nullptr) {
        const UxmlNode *child = static_cast<const UxmlNode *>(vec_iterNext(open->children));
        if (child == nullptr) {
            vec_iterDone(open->children, 0);
            ok = writeEnd(out, open, depth--);
            open = open->link;
            continue;
        }
        ok = writeStart(out, child, depth + 1);
        if (hasContent(child)) {
            child->link = open;
            open = child;
            vec_iterStart(open->children);
            ++depth;
        }
    }
    for (; open != nullptr; open = open->link) // after a failure
        vec_iterDone(open->children, 0);
    return TRACE_RETURN("%d", ok);
}

bool uxml_write(FILE *stream, const UxmlNode *root)
{
    TRACE_ENTER("stream=%p, root=%p", static_cast<void *>(stream), static_cast<const void *>(root));
    ASSERT_AT(110, stream != NULL);
    ASSERT_AT(111, root != NULL);
    Output out;
    out.stream = stream;
    out.used = 0;
    const bool ok = put(&out, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n") &&
                    writeTree(&out, root) && flush(&out) && fflush(stream) == 0;
    return TRACE_RETURN("%d", ok);
}
