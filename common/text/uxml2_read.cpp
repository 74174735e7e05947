#define MODULE "common/uxml2"

// Reading. The input is one run of characters in which comments are invisible; names, values and
// texts are collected from it up to a character that ends them. Open elements are kept in a vector,
// not on the stack.

#include "common/text/uxml2.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "common/base/exitpath.h"
#include "common/base/memory.h"
#include "common/base/vector.h"
#include "common/trace/qzdebug.h"

static constexpr size_t BLOCK_SIZE = 65536;
static constexpr size_t LINE_SIZE = 255;                    // of the first line
static constexpr size_t ENTITY_SIZE = 10;                   // characters after the '&'
static constexpr size_t FIRST_SIZE = 256;                   // of a buffer
static constexpr size_t LIMIT = size_t{1} << 30;            // of a buffer
static constexpr char DECLARATION[] = "<?xml version=\"1."; // a document begins with this

static constexpr int END = -1; // returned in place of a character: the input has ended

// ---- Classes of characters --------------------------------------------------------------------

namespace {
enum : uint8_t {
    WHITE = 1,
    ENDS_NAME = 2,
    ENDS_TEXT = 4,
    ENDS_SINGLE = 8,  // a value in single quotes
    ENDS_DOUBLE = 16, // and one in double quotes
    PAUSES = 32,      // needs a closer look anywhere
};
} // namespace

static consteval uint8_t classOf(unsigned c)
{
    switch (c) {
    case '\t':
    case '\n':
    case '\v':
    case '\f':
    case '\r':
    case ' ':
        return WHITE | ENDS_NAME;
    case '=':
    case '>':
        return ENDS_NAME;
    case '\'':
        return ENDS_SINGLE;
    case '"':
        return ENDS_DOUBLE;
    case '<':
        return PAUSES | ENDS_NAME | ENDS_TEXT;
    case '&':
    case '\0':
        return PAUSES;
    default:
        return 0;
    }
}

namespace {
struct CharacterClasses {
    uint8_t of[256];
};
} // namespace

static consteval CharacterClasses makeClasses()
{
    CharacterClasses made = {};
    for (unsigned c = 0; c < 256; ++c)
        made.of[c] = classOf(c);
    return made;
}

static constexpr CharacterClasses classes = makeClasses();

static bool isOf(int c, uint8_t wanted)
{
    return c != END && (classes.of[c] & wanted) != 0;
}

// ---- Input ------------------------------------------------------------------------------------

namespace {
struct Input {
    FILE *stream;
    bool ended;                          // the stream has been read to its end
    const unsigned char *at;             // the next character
    const unsigned char *end;            // after the last character; a zero byte is there
    unsigned char block[BLOCK_SIZE + 1]; // the input read last
};
} // namespace

static void inputOpen(Input *in, FILE *stream)
{
    in->stream = stream;
    in->ended = false;
    in->at = in->end = in->block;
    in->block[0] = '\0';
}

// Discards the rest of the input.
static void inputEnd(Input *in)
{
    in->ended = true;
    in->at = in->end;
}

// Reads more after the rest of the block, which is far smaller than the block.
static bool refill(Input *in)
{
    if (in->ended)
        return false;
    const size_t kept = static_cast<size_t>(in->end - in->at);
    memmove(in->block, in->at, kept);
    const size_t got = fread(in->block + kept, 1, BLOCK_SIZE - kept, in->stream);
    in->ended = got < BLOCK_SIZE - kept;
    in->at = in->block;
    in->end = in->block + kept + got;
    in->block[kept + got] = '\0';
    return got != 0;
}

static bool atLeast(Input *in, size_t count)
{
    while (static_cast<size_t>(in->end - in->at) < count) {
        if (!refill(in))
            return false;
    }
    return true;
}

static bool atComment(Input *in)
{
    return atLeast(in, 4) && memcmp(in->at, "<!--", 4) == 0;
}

// False when the input ends before the comment does.
static bool skipComment(Input *in)
{
    in->at += 4;
    unsigned dashes = 0;
    while (in->at != in->end || refill(in)) {
        const unsigned char c = *in->at++;
        if (c == '>' && dashes >= 2)
            return true;
        dashes = c == '-' ? dashes + 1 : 0;
    }
    return false;
}

static int lookCloser(Input *in)
{
    while (in->at != in->end || refill(in)) {
        const unsigned char c = *in->at;
        if (c == '\0')
            break;
        if (c != '<' || !atComment(in))
            return c;
        if (!skipComment(in))
            break;
    }
    inputEnd(in);
    return END;
}

// The next character that is not part of a comment, not decoded; END when there is none.
static int look(Input *in)
{
    const unsigned char c = *in->at;
    return (classes.of[c] & PAUSES) != 0 ? lookCloser(in) : c;
}

// Consumes the next character when it is this one.
static bool accept(Input *in, int wanted)
{
    const bool accepted = look(in) == wanted;
    if (accepted)
        ++in->at;
    return accepted;
}

static void skipWhite(Input *in)
{
    while (isOf(look(in), WHITE))
        ++in->at;
}

// An entity that is not known is neither kept nor reported.
static int entityCharacter(const char *name, size_t length)
{
    static const struct {
        char name[5];
        char character;
    } rows[] = {{"gt", '>'}, {"lt", '<'}, {"quot", '"'}, {"apos", '\''}, {"amp", '&'}};
    for (const auto &row : rows) {
        if (strlen(row.name) == length && memcmp(row.name, name, length) == 0)
            return row.character;
    }
    return '~';
}

// Consumes the entity that begins with the next character. END when the input ends first.
static int decodeEntity(Input *in)
{
    char name[ENTITY_SIZE];
    ++in->at;
    for (size_t length = 0; length < ENTITY_SIZE; ++length) {
        const int c = look(in);
        if (c == END)
            return END;
        ++in->at;
        if (c == ';')
            return entityCharacter(name, length);
        name[length] = static_cast<char>(c);
    }
    return '~';
}

// ---- Collecting -------------------------------------------------------------------------------

namespace {
struct Buffer {
    char *data;
    size_t size;
    size_t capacity;
};
} // namespace

// Grows the buffer for `size` more characters and one; false when it would get too large.
[[gnu::noinline]] static bool bufferGrow(Buffer *buffer, size_t size)
{
    const size_t needed = buffer->size + size;
    if (needed > LIMIT)
        return false;
    size_t capacity = buffer->capacity != 0 ? buffer->capacity : FIRST_SIZE;
    while (capacity <= needed)
        capacity *= 2;
    buffer->data = static_cast<char *>(xrealloc_must(buffer->data, buffer->size, capacity));
    buffer->capacity = capacity;
    return true;
}

static bool bufferAdd(Buffer *buffer, const void *characters, size_t size)
{
    if (size >= buffer->capacity - buffer->size && !bufferGrow(buffer, size))
        return false;
    memcpy(buffer->data + buffer->size, characters, size);
    buffer->size += size;
    return true;
}

static bool bufferAddOne(Buffer *buffer, int c)
{
    const char character = static_cast<char>(c);
    return bufferAdd(buffer, &character, 1);
}

static const unsigned char *runEnd(const unsigned char *at, uint8_t stops)
{
    while ((classes.of[*at] & stops) == 0)
        ++at;
    return at;
}

// Consumes the characters before the next one that is of the class `ends`, or before the end of the
// input, and adds them, decoded. Running out of memory ends the input.
static void collect(Input *in, Buffer *buffer, uint8_t ends)
{
    for (;;) {
        const unsigned char *run = in->at;
        in->at = runEnd(run, ends | PAUSES);
        const size_t size = static_cast<size_t>(in->at - run);
        if (!bufferAdd(buffer, run, size))
            return inputEnd(in);
        int c = look(in);
        if (c == END || isOf(c, ends))
            return;
        if (c == '&')
            c = decodeEntity(in);
        else
            ++in->at;
        if (c == END || !bufferAddOne(buffer, c))
            return inputEnd(in);
    }
}

// ---- Elements ---------------------------------------------------------------------------------

namespace {
struct Reader {
    UxmlNode *root; // once it is complete
    Vector *open;   // the incomplete elements, outermost first, owned by this vector
    Buffer token;   // the name, or name and value, being read
    Buffer text;    // the texts of the open elements, outermost first, each after a zero byte
    Input in;
};
} // namespace

// Reads a name after white space and adds it to the token with its zero byte. A name must not be
// empty.
static bool readName(Reader *reader)
{
    skipWhite(&reader->in);
    const size_t start = reader->token.size;
    collect(&reader->in, &reader->token, ENDS_NAME);
    return reader->token.size != start && bufferAddOne(&reader->token, '\0');
}

// Reads the value after a '='. The end of the input ends it as well; the next read then fails.
static bool readValue(Reader *reader)
{
    const int quote = look(&reader->in);
    if (quote != '"' && quote != '\'')
        return false;
    ++reader->in.at;
    collect(&reader->in, &reader->token, quote == '"' ? ENDS_DOUBLE : ENDS_SINGLE);
    accept(&reader->in, quote);
    return true;
}

static bool readAttribute(Reader *reader, UxmlNode *node)
{
    reader->token.size = 0;
    if (!readName(reader))
        return false;
    const size_t value = reader->token.size;
    if (accept(&reader->in, '=') && !readValue(reader))
        return false;
    if (!bufferAddOne(&reader->token, '\0'))
        return false;
    uxml_add_attr(node, reader->token.data, reader->token.data + value);
    return true;
}

namespace {
enum Tag { TAG_BROKEN, TAG_EMPTY, TAG_OPEN };
} // namespace

// Reads what follows an element's name, up to the end of its tag.
static Tag readAttributes(Reader *reader, UxmlNode *node)
{
    for (;;) {
        skipWhite(&reader->in);
        if (accept(&reader->in, '/'))
            return accept(&reader->in, '>') ? TAG_EMPTY : TAG_BROKEN;
        if (accept(&reader->in, '>'))
            return TAG_OPEN;
        if (!readAttribute(reader, node)) // fails at the end of the input, too
            return TAG_BROKEN;
    }
}

// The innermost open element is complete: adds it to its parent.
static void closeElement(Reader *reader)
{
    UxmlNode *node = static_cast<UxmlNode *>(vec_pop(reader->open));
    UxmlNode *parent = static_cast<UxmlNode *>(vec_top(reader->open));
    if (parent != nullptr)
        uxml_add_child(parent, node);
    else
        reader->root = node;
}

// Reads an opening tag after its '<'.
static bool readOpeningTag(Reader *reader)
{
    reader->token.size = 0;
    if (!readName(reader))
        return false;
    UxmlNode *node = uxml_node_new(reader->token.data);
    vec_add(reader->open, node);
    const Tag tag = readAttributes(reader, node);
    if (tag == TAG_EMPTY)
        closeElement(reader);
    return tag == TAG_EMPTY || (tag == TAG_OPEN && bufferAddOne(&reader->text, '\0'));
}

// Moves the text of the innermost open element from the buffer to the element, without the white
// space around it.
static bool storeText(Buffer *text, UxmlNode *node)
{
    size_t end = text->size;
    while (isOf(static_cast<unsigned char>(text->data[end - 1]), WHITE))
        --end;
    size_t start = end;
    while (text->data[start - 1] != '\0')
        --start;
    text->size = end;
    if (!bufferAddOne(text, '\0'))
        return false;
    uxml_set_text(node, text->data + start);
    text->size = start - 1;
    return true;
}

// Reads a closing tag after its "</".
static bool readClosingTag(Reader *reader)
{
    UxmlNode *node = static_cast<UxmlNode *>(vec_top(reader->open));
    reader->token.size = 0;
    if (!readName(reader) || !accept(&reader->in, '>') ||
        strcmp(reader->token.data, uxml_name(node)) != 0 || !storeText(&reader->text, node))
        return false;
    closeElement(reader);
    return true;
}

// Reads text up to the next tag, and that tag. Leading white space is never stored, so that the
// blanks between elements are not collected.
static bool readContent(Reader *reader)
{
    if (reader->text.data[reader->text.size - 1] == '\0')
        skipWhite(&reader->in);
    collect(&reader->in, &reader->text, ENDS_TEXT);
    if (!accept(&reader->in, '<'))
        return false;
    return accept(&reader->in, '/') ? readClosingTag(reader) : readOpeningTag(reader);
}

// Reads the first line, or as much of it as a line may have.
static bool readDeclaration(Input *in)
{
    TRACE_ENTER("in=%p", static_cast<void *>(in));
    static constexpr size_t NEEDED = sizeof DECLARATION - 1;
    atLeast(in, LINE_SIZE);
    const size_t left = static_cast<size_t>(in->end - in->at);
    if (left < NEEDED || memcmp(in->at, DECLARATION, NEEDED) != 0)
        return TRACE_RETURN("%d", false);
    const size_t size = left < LINE_SIZE ? left : LINE_SIZE;
    const void *line_end = memchr(in->at, '\n', size);
    in->at = line_end != nullptr ? static_cast<const unsigned char *>(line_end) + 1 : in->at + size;
    return TRACE_RETURN("%d", true);
}

static bool readDocument(Reader *reader)
{
    TRACE_ENTER("reader=%p", static_cast<void *>(reader));
    bool ok = readDeclaration(&reader->in) && accept(&reader->in, '<') && readOpeningTag(reader);
    while (ok && vec_size(reader->open) != 0)
        ok = readContent(reader);
    return TRACE_RETURN("%d", ok);
}

UxmlNode *uxml_read(FILE *stream)
{
    TRACE_ENTER("stream=%p", static_cast<void *>(stream));
    ASSERT_AT(200, stream != NULL);
    Reader reader;
    reader.root = nullptr;
    reader.open = vec_new(MODULE, __LINE__);
    reader.token = {nullptr, 0, 0};
    reader.text = {nullptr, 0, 0};
    inputOpen(&reader.in, stream);
    if (!readDocument(&reader)) {
        for (UxmlNode *node : vec_each<UxmlNode>(reader.open))
            uxml_node_free(node);
    }
    vec_destroy(reader.open);
    free(reader.token.data);
    free(reader.text.data);
    return TRACE_RETURN("%p", reader.root);
}
