// The legacy assembler's index of devices, 8bit_device.info, made of any bytes. The names are those
// that the format's rules give; the rules are stated a second time here.
#include "common/base/vector.h"
#include "common/os/osdep_file.h"
#include "driver/devices.h"
#include "driver/devices_internal.h"
#include "fuzz/support.h"

using Names = std::vector<std::string>;

static std::string s_index;

// The index is the only file that exists. (The linker replaces the function of this name by this.)
extern "C" FILE *__wrap__Z21osdep_openRegularFilePKcP14OsdepFileFacts(const char *,
                                                                      OsdepFileFacts *)
{
    return memoryFile(s_index);
}

static const char *const MARK = "<PARTS_INDEX_TYPE><";

static bool isOpen(const std::string &line)
{
    return line.starts_with(MARK) && line.find('>', std::string(MARK).size()) == std::string::npos;
}

// The lines of the index, up to the sections of the individual devices.
static Names indexLines()
{
    Names lines = splitFields(s_index, "\n", s_index.size() + 1);
    for (size_t i = 0; i < lines.size(); ++i) {
        lines[i] = lines[i].c_str();
        if (lines[i].starts_with("<PART_INFO_TYPE>"))
            lines.resize(i);
    }
    return lines;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    s_index.assign(reinterpret_cast<const char *>(data), size);
    Names expected;
    for (const std::string &line : indexLines()) {
        if (isOpen(line))
            return 0; // a broken contract, which ends the process
        const size_t start = std::string(MARK).size();
        if (line.starts_with(MARK))
            expected.push_back(line.substr(start, line.find('>', start) - start));
    }
    Vector *names = noting([] { return devices_readIndex("index"); });
    require(vec_size(names) == expected.size());
    for (uint32_t i = 0; i < vec_size(names); ++i)
        require(expected[i] == static_cast<const char *>(vec_elementAt(names, i)));
    vec_destroy(names);
    freeNoted();
    return 0;
}
