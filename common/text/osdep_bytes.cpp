#define MODULE "common/osdep"
#include "common/text/osdep_bytes.h"

#include "common/base/exitpath.h"
#include "common/trace/qzdebug.h"

// Metadata files hold millions of these fields and the program has one thread, so the stream is
// read without its lock where the library allows that.
#ifdef __GLIBC__
static size_t readItem(FILE *f, uint8_t *bytes, size_t width)
{
    return fread_unlocked(bytes, width, 1, f);
}

static size_t writeItem(FILE *f, const uint8_t *bytes, size_t width)
{
    return fwrite_unlocked(bytes, width, 1, f);
}
#else
static size_t readItem(FILE *f, uint8_t *bytes, size_t width)
{
    return std::fread(bytes, width, 1, f);
}

static size_t writeItem(FILE *f, const uint8_t *bytes, size_t width)
{
    return std::fwrite(bytes, width, 1, f);
}
#endif

namespace {
enum class Order { little, big };
} // namespace

// The place in the file of the byte that holds bits 8 * i and up.
template <Order order> static constexpr size_t place(size_t i, size_t width)
{
    return order == Order::little ? i : width - 1 - i;
}

// A failed read leaves the value as it was.
template <Order order, class T> static size_t readValue(FILE *f, T *val)
{
    uint8_t bytes[sizeof(T)];
    if (readItem(f, bytes, sizeof bytes) == 0)
        return 0;
    T value = 0;
    for (size_t i = 0; i < sizeof(T); ++i)
        value =
            static_cast<T>(value | static_cast<T>(T{bytes[place<order>(i, sizeof(T))]} << 8 * i));
    *val = value;
    return 1;
}

template <Order order, class T> static size_t writeValue(FILE *f, T val)
{
    uint8_t bytes[sizeof(T)];
    for (size_t i = 0; i < sizeof(T); ++i)
        bytes[place<order>(i, sizeof(T))] = static_cast<uint8_t>(val >> 8 * i);
    return writeItem(f, bytes, sizeof bytes);
}

// The report names the function. Its lines: 10 and up the readers, 30 and up the writers.
#define CHECK_STREAM(line) ASSERT_PLACE_AT(__func__, line, f != nullptr, "f != ((void*)0)")
#define CHECK_VALUE(line)  ASSERT_PLACE_AT(__func__, line, val != nullptr, "val != ((void*)0)")

size_t osdep_readU8(FILE *f, uint8_t *val)
{
    TRACE_ENTER("f=%p", static_cast<void *>(f));
    CHECK_STREAM(10);
    CHECK_VALUE(11);
    return TRACE_RETURN("%zu", readValue<Order::little>(f, val));
}

size_t osdep_readLEU16(FILE *f, uint16_t *val)
{
    TRACE_ENTER("f=%p", static_cast<void *>(f));
    CHECK_STREAM(12);
    CHECK_VALUE(13);
    return TRACE_RETURN("%zu", readValue<Order::little>(f, val));
}

size_t osdep_readLEU32(FILE *f, uint32_t *val)
{
    TRACE_ENTER("f=%p", static_cast<void *>(f));
    CHECK_STREAM(14);
    CHECK_VALUE(15);
    return TRACE_RETURN("%zu", readValue<Order::little>(f, val));
}

size_t osdep_readLEU64(FILE *f, uint64_t *val)
{
    TRACE_ENTER("f=%p", static_cast<void *>(f));
    CHECK_STREAM(16);
    CHECK_VALUE(17);
    return TRACE_RETURN("%zu", readValue<Order::little>(f, val));
}

void osdep_readBEU16(FILE *f, uint16_t *val)
{
    TRACE_ENTER("f=%p", static_cast<void *>(f));
    CHECK_STREAM(18);
    CHECK_VALUE(19);
    readValue<Order::big>(f, val);
}

void osdep_readBEU32(FILE *f, uint32_t *val)
{
    TRACE_ENTER("f=%p", static_cast<void *>(f));
    CHECK_STREAM(20);
    CHECK_VALUE(21);
    readValue<Order::big>(f, val);
}

void osdep_readBEU64(FILE *f, uint64_t *val)
{
    TRACE_ENTER("f=%p", static_cast<void *>(f));
    CHECK_STREAM(22);
    CHECK_VALUE(23);
    readValue<Order::big>(f, val);
}

size_t osdep_writeU8(FILE *f, uint8_t val)
{
    TRACE_ENTER("f=%p, val=%u", static_cast<void *>(f), val);
    CHECK_STREAM(30);
    return TRACE_RETURN("%zu", writeValue<Order::little>(f, val));
}

size_t osdep_writeLEU16(FILE *f, uint16_t val)
{
    TRACE_ENTER("f=%p, val=%u", static_cast<void *>(f), val);
    CHECK_STREAM(31);
    return TRACE_RETURN("%zu", writeValue<Order::little>(f, val));
}

size_t osdep_writeLEU32(FILE *f, uint32_t val)
{
    TRACE_ENTER("f=%p, val=%u", static_cast<void *>(f), val);
    CHECK_STREAM(32);
    return TRACE_RETURN("%zu", writeValue<Order::little>(f, val));
}

size_t osdep_writeLEU64(FILE *f, uint64_t val)
{
    TRACE_ENTER("f=%p, val=%ju", static_cast<void *>(f), uintmax_t{val});
    CHECK_STREAM(33);
    return TRACE_RETURN("%zu", writeValue<Order::little>(f, val));
}

size_t osdep_writeBEU16(FILE *f, uint16_t val)
{
    TRACE_ENTER("f=%p, val=%u", static_cast<void *>(f), val);
    CHECK_STREAM(34);
    return TRACE_RETURN("%zu", writeValue<Order::big>(f, val));
}

size_t osdep_writeBEU32(FILE *f, uint32_t val)
{
    TRACE_ENTER("f=%p, val=%u", static_cast<void *>(f), val);
    CHECK_STREAM(35);
    return TRACE_RETURN("%zu", writeValue<Order::big>(f, val));
}

size_t osdep_writeBEU64(FILE *f, uint64_t val)
{
    TRACE_ENTER("f=%p, val=%ju", static_cast<void *>(f), uintmax_t{val});
    CHECK_STREAM(36);
    return TRACE_RETURN("%zu", writeValue<Order::big>(f, val));
}
