// The programs' answers to the question for their devices, made of any bytes. The names are those
// that the rules for the two answers give; the rules are stated a second time here. The comparison
// of device names is a proper order.
#include <algorithm>
#include <cstring>

#include "common/base/vector.h"
#include "driver/devices.h"
#include "fuzz/support.h"

using Names = std::vector<std::string>;

static std::string s_answer;

// Each of the programs exists and answers with the input. (The linker replaces the functions of
// these names by these.)
extern "C" {
const char *__wrap__Z13getDriverPathj(uint32_t)
{
    return "program";
}
FILE *__wrap__Z19osdep_popen_commandPKcz(const char *, ...)
{
    return memoryFile(s_answer);
}
int __wrap__Z12osdep_pcloseP8_IO_FILE(FILE *stream)
{
    return std::fclose(stream);
}
}

static Names taken(Vector *vector)
{
    require(vector != nullptr);
    Names names;
    for (const char *name : vec_each<const char>(vector))
        names.emplace_back(name);
    vec_destroy(vector);
    return names;
}

static std::string lowered(std::string text)
{
    for (char &c : text)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return text;
}

static Names lines()
{
    Names all = splitFields(s_answer, "\n", s_answer.size() + 1);
    for (std::string &line : all)
        line = line.c_str();
    return all;
}

static Names expectedOrb()
{
    Names names;
    for (const std::string &line : lines())
        if (const std::string name = line.substr(0, line.find_first_of(":\r")); !name.empty())
            names.push_back(lowered(name));
    return names;
}

static Names expectedElm()
{
    Names names;
    bool begun = false;
    for (const std::string &line : lines()) {
        if (begun && line.starts_with("Linker"))
            break;
        for (size_t at = 0; begun && at < line.size();) {
            const size_t end = std::min(line.find_first_of(" \t\r", at), line.size());
            const std::string word = line.substr(at, end - at);
            if (!word.empty() && word != "elm1")
                names.push_back(lowered(word));
            at = end + 1;
        }
        begun = begun || line.starts_with("Known MCU names");
    }
    return names;
}

// Of two different names exactly one comes first, of two equal ones neither; sorting gives this
// order.
static void checkOrder(Names names)
{
    names.resize(std::min<size_t>(names.size(), 16));
    for (const std::string &a : names) {
        for (const std::string &b : names) {
            const bool before = deviceNameCompare(a.c_str(), b.c_str()) < 0;
            const bool after = deviceNameCompare(b.c_str(), a.c_str()) < 0;
            require(a == b ? !before && !after : before != after);
            require(a != b || deviceNameCompare(a.c_str(), b.c_str()) == 1);
        }
    }
    std::sort(names.begin(), names.end(), [](const std::string &a, const std::string &b) {
        return deviceNameCompare(a.c_str(), b.c_str()) < 0;
    });
    for (size_t i = 1; i < names.size(); ++i)
        require(deviceNameCompare(names[i].c_str(), names[i - 1].c_str()) > 0);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    s_answer.assign(reinterpret_cast<const char *>(data), size);
    Names orb;
    Names elm;
    {
        Vector *list = noting(getORBDeviceList);
        orb = taken(list);
        list = noting(getELMDeviceList);
        elm = taken(list);
    }
    freeNoted();
    require(orb == expectedOrb());
    require(elm == expectedElm());
    checkOrder(orb);
    return 0;
}
