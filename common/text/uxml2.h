// uxml2: a small reader and writer for the XML files of the suite. docs/xml-files.md describes
// those files and the dialect that is read and written.
//
//     UxmlNode *root = uxml_read(stream);
//     if (root != nullptr) {
//         for (UxmlNode *child : vec_each<UxmlNode>(uxml_children(root)))
//             puts(uxml_name(child));
//         uxml_node_free(root);
//     }
//
//     UxmlNode *package = uxml_node_new("package");
//     UxmlNode *file = uxml_node_new("file");
//     uxml_add_child(package, file);
//     uxml_add_attr(file, "name", "bin/orbc");
//     uxml_set_text(file, "text");
//     bool ok = uxml_write(stream, package);
//     uxml_node_free(package);
//
// A tree is made of elements: a name, a text, attributes and child elements, the last two in the
// order of the document. An element owns its name, text, attributes and children; freeing it frees
// everything below it. Texts are bytes in no particular encoding.
//
// A null argument is a broken contract and ends the run unless a function says otherwise.
#ifndef COMMON_TEXT_UXML2_H
#define COMMON_TEXT_UXML2_H

#include <cstdio>

struct UxmlAttribute; // a name and a value
struct UxmlNode;      // an element
struct Vector;

// Reads a document and returns its root element, owned by the caller, or null for anything that is
// not a document of the dialect; nothing is reported. The stream is read in blocks, so its position
// afterwards is not defined. Anything after the root element is ignored.
//
// Nothing read is trusted: memory and time grow with the size of the input and with nothing else,
// at whatever depth. A zero byte after the first line and outside a comment ends the input, as does
// a read error. A name, a value, or the texts of all open elements together may take up to 1 GiB; a
// document with more is unreadable.
UxmlNode *uxml_read(FILE *stream);

// Writes the document whose root element is `root`, and flushes the stream so that a full disk is
// noticed here. False as soon as a write fails. The tree is not changed, but two calls must not
// write one tree at the same time.
//
// Everything is written as is, without escapes. It can be read back to an equal tree when every
// name could come from a file (docs/xml-files.md), no text begins or ends with white space, and
// every element has an attribute, a child or a text.
bool uxml_write(FILE *stream, const UxmlNode *root);

// Returns an element with a copy of this name, without text, attributes and children; owned by the
// caller until it is given to uxml_add_child().
UxmlNode *uxml_node_new(const char *name);

// Frees an element that has no parent, with everything below it. Null is allowed.
void uxml_node_free(UxmlNode *node);

// The child elements (UxmlNode) and the attributes (UxmlAttribute), in the order of the document.
// The vector, empty when there are none, lives as long as the element.
Vector *uxml_children(const UxmlNode *node);
Vector *uxml_attributes(const UxmlNode *node);

// The name of an element and its text ("" when it has none). Valid as long as the element, and the
// text until another one is set.
const char *uxml_name(const UxmlNode *node);
const char *uxml_text(const UxmlNode *node);

// The name of an attribute and its value ("" when it was read without one). Valid as long as the
// element.
const char *uxml_attr_name(const UxmlAttribute *attribute);
const char *uxml_attr_value(const UxmlAttribute *attribute);

// Gives the element a copy of `text` in place of the text it had.
void uxml_set_text(UxmlNode *node, const char *text);

// Appends an element that has no parent yet; `node` owns it from now on.
void uxml_add_child(UxmlNode *node, UxmlNode *child);

// Appends an attribute with copies of both strings. An element may have several attributes of one
// name.
void uxml_add_attr(UxmlNode *node, const char *name, const char *value);

#endif
