// The list that selects tests, made of any words. It selects by the rules that are stated a second
// time here, over a list from which removed rows are actually deleted.
#include <algorithm>

#include "common/base/vector.h"
#include "fuzz/support.h"
#include "selftests/selftests_internal.h"

using Rows = std::vector<const SelftestRow *>;

static const SelftestRow *s_rows;
static uint32_t s_rowCount;

static void addAll(Rows *selected, bool standardOnly)
{
    for (uint32_t i = 0; i < s_rowCount; ++i) {
        const SelftestRow *row = &s_rows[i];
        const bool works = row->setup != nullptr || row->tests != nullptr;
        if (works && !row->group && (row->standard || !standardOnly))
            selected->push_back(row);
    }
}

static void addNamed(Rows *selected, const std::string &name)
{
    for (uint32_t i = 0; i < s_rowCount; ++i)
        if (name == s_rows[i].name)
            selected->push_back(&s_rows[i]);
}

static void removeNamed(Rows *selected, const std::string &name)
{
    for (uint32_t i = 0; i < s_rowCount; ++i) {
        if (name != s_rows[i].name)
            continue;
        const bool group = s_rows[i].group;
        std::erase_if(*selected, [&](const SelftestRow *row) {
            return name == row->name || (group && std::string(row->name).starts_with(name));
        });
    }
}

static void apply(Rows *selected, const std::string &word)
{
    if (word[0] == '-')
        removeNamed(selected, word.substr(1));
    else if (word[0] == '+')
        addNamed(selected, word.substr(1));
    else if (word == "all" || word == "default")
        addAll(selected, word == "default");
    else if (word == "none")
        selected->clear();
    else
        addNamed(selected, word);
}

static std::vector<std::string> wordsOf(const std::string &list)
{
    std::vector<std::string> words = splitFields(list, ",", list.size() + 1);
    std::erase(words, "");
    return words;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    s_rows = selftests_table(&s_rowCount);
    std::string list(reinterpret_cast<const char *>(data), size);
    list.resize(list.find('\0') != std::string::npos ? list.find('\0') : list.size());
    const std::vector<std::string> words = wordsOf(list);
    if (std::find(words.begin(), words.end(), "help") != words.end())
        return 0; // prints the help and ends the process

    Rows expected;
    if (list.empty())
        addAll(&expected, true);
    for (const std::string &word : words)
        apply(&expected, word);

    Vector *chosen = noting([&] { return selftests_choose(list.c_str()); });
    require(vec_size(chosen) == expected.size());
    for (uint32_t i = 0; i < vec_size(chosen); ++i)
        require(vec_elementAt(chosen, i) == expected[i]);
    vec_destroy(chosen);
    freeNoted();
    return 0;
}
