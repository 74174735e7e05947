// Reading XML files of 1 and 16 MB, of the shapes of deviceSupport.xml and of the installation
// manifest, beside expat building the same tree; writing them, beside fwrite() of the same bytes.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <expat.h>

#include "common/text/uxml2.h"
#include "file_bytes.h"

// ---- The files --------------------------------------------------------------------------------

static UxmlNode *addChild(UxmlNode *parent, const char *name)
{
    UxmlNode *child = uxml_node_new(name);
    uxml_add_child(parent, child);
    return child;
}

// A catalogue of `devices` devices in groups of 100.
static UxmlNode *makeDevices(int64_t devices)
{
    UxmlNode *root = uxml_node_new("deviceSupport");
    UxmlNode *group = nullptr;
    char name[32];
    for (int64_t i = 0; i < devices; ++i) {
        if (i % 100 == 0) {
            group = addChild(root, "family");
            snprintf(name, sizeof name, "family %lld", static_cast<long long>(i / 100));
            uxml_add_attr(group, "title", name);
        }
        snprintf(name, sizeof name, "ORB18F%06lld", static_cast<long long>(i));
        uxml_add_attr(addChild(group, "device"), "name", name);
    }
    return root;
}

// A manifest of `files` files.
static UxmlNode *makeManifest(int64_t files)
{
    UxmlNode *root = uxml_node_new("package");
    UxmlNode *content = addChild(root, "content");
    uxml_add_attr(content, "datestamp", "1700000000");
    char text[80];
    for (int64_t i = 0; i < files; ++i) {
        UxmlNode *file = addChild(content, "file");
        snprintf(text, sizeof text, "./orb/include/proc/header_%lld.h", static_cast<long long>(i));
        uxml_add_attr(file, "name", text);
        snprintf(text, sizeof text, "%064llx", static_cast<unsigned long long>(i * 0x9e3779b9));
        uxml_set_text(addChild(file, "hash"), text);
    }
    return root;
}

using Make = UxmlNode *(*)(int64_t count);

// The tree whose file has about `bytes` bytes.
static UxmlNode *makeTree(Make make, int64_t bytes)
{
    return make(bytes / (make == makeDevices ? 36 : 150));
}

// A temporary file with that tree.
static FILE *makeFile(Make make, int64_t bytes)
{
    FILE *file = tmpfile();
    UxmlNode *root = makeTree(make, bytes);
    if (file == nullptr || !uxml_write(file, root))
        abort();
    uxml_node_free(root);
    return file;
}

// ---- The tree by expat ------------------------------------------------------------------------

struct Building {
    UxmlNode *root = nullptr;
    std::vector<UxmlNode *> open;
    std::vector<size_t> starts; // the beginnings of the open elements' texts
    std::string text;           // of the open elements, one after the other
};

static const char WHITE[] = " \t\n\v\f\r";

static void startElement(void *data, const char *name, const char **attributes)
{
    auto *building = static_cast<Building *>(data);
    UxmlNode *node = uxml_node_new(name);
    for (; *attributes != nullptr; attributes += 2)
        uxml_add_attr(node, attributes[0], attributes[1]);
    if (building->open.empty())
        building->root = node;
    else
        uxml_add_child(building->open.back(), node);
    building->open.push_back(node);
    building->starts.push_back(building->text.size());
}

static void endElement(void *data, const char *)
{
    auto *building = static_cast<Building *>(data);
    const size_t start = building->starts.back();
    const size_t last = building->text.find_last_not_of(WHITE);
    if (last != std::string::npos && last >= start) {
        building->text.resize(last + 1);
        uxml_set_text(building->open.back(), building->text.c_str() + start);
    }
    building->text.resize(start);
    building->open.pop_back();
    building->starts.pop_back();
}

static void characters(void *data, const char *text, int length)
{
    auto *building = static_cast<Building *>(data);
    const char *end = text + length;
    if (building->text.size() == building->starts.back()) {
        while (text != end && (*text == ' ' || (*text >= '\t' && *text <= '\r')))
            ++text;
    }
    building->text.append(text, end);
}

static UxmlNode *readWithExpat(FILE *file)
{
    const int block = 65536;
    Building building;
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, &building);
    XML_SetElementHandler(parser, startElement, endElement);
    XML_SetCharacterDataHandler(parser, characters);
    for (bool last = false; !last;) {
        const size_t got = fread(XML_GetBuffer(parser, block), 1, block, file);
        last = got < block;
        if (XML_ParseBuffer(parser, static_cast<int>(got), last) != XML_STATUS_OK)
            abort();
    }
    XML_ParserFree(parser);
    return building.root;
}

// ---- Benchmarks -------------------------------------------------------------------------------

// The file that a tree makes.
static std::vector<char> written(const UxmlNode *root)
{
    FILE *file = tmpfile();
    if (root == nullptr || !uxml_write(file, root))
        abort();
    std::vector<char> bytes = bytesOf(file);
    fclose(file);
    return bytes;
}

// Whether the reader returns the tree that the file was made from.
static bool readsBack(UxmlNode *(*read)(FILE *), FILE *file)
{
    const std::vector<char> bytes = bytesOf(file);
    rewind(file);
    UxmlNode *root = read(file);
    const bool same = written(root) == bytes;
    uxml_node_free(root);
    return same;
}

template <Make MAKE, UxmlNode *(*READ)(FILE *)> static void readXml(benchmark::State &state)
{
    FILE *file = makeFile(MAKE, state.range(0));
    const int64_t size = ftell(file);
    if (!readsBack(READ, file))
        state.SkipWithError("read as something else");
    for (auto _ : state) {
        rewind(file);
        UxmlNode *root = READ(file);
        benchmark::DoNotOptimize(root);
        state.PauseTiming();
        uxml_node_free(root);
        state.ResumeTiming();
    }
    state.SetBytesProcessed(state.iterations() * size);
    fclose(file);
}

template <Make MAKE> static void freeTree(benchmark::State &state)
{
    FILE *file = makeFile(MAKE, state.range(0));
    const int64_t size = ftell(file);
    for (auto _ : state) {
        state.PauseTiming();
        rewind(file);
        UxmlNode *root = uxml_read(file);
        state.ResumeTiming();
        uxml_node_free(root);
    }
    state.SetBytesProcessed(state.iterations() * size);
    fclose(file);
}

template <Make MAKE> static void writeXml(benchmark::State &state)
{
    UxmlNode *root = makeTree(MAKE, state.range(0));
    FILE *file = tmpfile();
    for (auto _ : state) {
        rewind(file);
        if (!uxml_write(file, root))
            state.SkipWithError("not written");
    }
    state.SetBytesProcessed(state.iterations() * ftell(file));
    fclose(file);
    uxml_node_free(root);
}

template <Make MAKE> static void writeBytes(benchmark::State &state)
{
    FILE *file = makeFile(MAKE, state.range(0));
    const std::vector<char> bytes = bytesOf(file);
    for (auto _ : state) {
        rewind(file);
        benchmark::DoNotOptimize(fwrite(bytes.data(), 1, bytes.size(), file));
        fflush(file);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes.size()));
    fclose(file);
}

static void sizes(benchmark::internal::Benchmark *benchmark)
{
    benchmark->Arg(1 << 20)->Arg(1 << 24)->Unit(benchmark::kMillisecond);
}

BENCHMARK_TEMPLATE(readXml, makeDevices, uxml_read)->Apply(sizes);
BENCHMARK_TEMPLATE(readXml, makeDevices, readWithExpat)->Apply(sizes);
BENCHMARK_TEMPLATE(readXml, makeManifest, uxml_read)->Apply(sizes);
BENCHMARK_TEMPLATE(readXml, makeManifest, readWithExpat)->Apply(sizes);
BENCHMARK_TEMPLATE(freeTree, makeDevices)->Apply(sizes);
BENCHMARK_TEMPLATE(writeXml, makeDevices)->Apply(sizes);
BENCHMARK_TEMPLATE(writeBytes, makeDevices)->Apply(sizes);
BENCHMARK_TEMPLATE(writeXml, makeManifest)->Apply(sizes);
BENCHMARK_TEMPLATE(writeBytes, makeManifest)->Apply(sizes);
