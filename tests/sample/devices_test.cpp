// The list of the sample suite's devices.
#include "sample/devices.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <regex>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "driver/families.h"
#include "driver/options_process.h"

namespace {

const unsigned ALL = DEVICES_ORB | DEVICES_ORB18 | DEVICES_ELM;

std::string lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string found(const char *name, unsigned groups)
{
    const Device *device = device_find(name, groups);
    return device == nullptr ? "" : device->name;
}

} // namespace

TEST(SampleDevices, EachGroupIsAsLargeAsASuitesIs)
{
    std::map<DeviceGroup, size_t> counts;
    for (const Device &device : *device_list())
        counts[device_group(&device)]++;
    EXPECT_GE(counts[DEVICES_ORB], 300u);
    EXPECT_GE(counts[DEVICES_ORB18], 120u);
    EXPECT_GE(counts[DEVICES_ELM], 200u);
}

TEST(SampleDevices, NoNameStandsTwiceInWhateverCase)
{
    std::set<std::string> names;
    for (const Device &device : *device_list())
        EXPECT_TRUE(names.insert(lower(device.name)).second) << device.name;
}

TEST(SampleDevices, NamesFollowTheirFamilysPattern)
{
    const std::regex orb("(ORB1[0246]) (1[0246]zl?x?[0-9]{2}[ab]?|zq[0-9]{2}|wt[xy][0-9])");
    const std::regex orb18("ORB18 18z[lx]?[0-9]{2}a?");
    const std::regex elm("ELM (elm(mini|mid|big|w)[0-9]{1,2}[px]?|kv(mini)?[0-9]{1,2})");
    for (const Device &device : *device_list()) {
        std::string text = device.family + (" " + lower(device.name));
        DeviceGroup group = device_group(&device);
        const std::regex &pattern = group == DEVICES_ORB     ? orb
                                    : group == DEVICES_ORB18 ? orb18
                                                             : elm;
        EXPECT_TRUE(std::regex_match(text, pattern)) << text;
    }
}

TEST(SampleDevices, AFamilyWithANumberHasItsDevicesBeginWithIt)
{
    for (const Device &device : *device_list()) {
        std::string name = device.name;
        bool isNumbered = std::isdigit(static_cast<unsigned char>(name[0])) != 0;
        EXPECT_EQ(isNumbered ? "ORB" + name.substr(0, 2) : device.family, device.family) << name;
    }
}

TEST(SampleDevices, TheDriverTakesEachForADeviceOfItsGroup)
{
    const std::map<DeviceGroup, unsigned> families = {
        {DEVICES_ORB, 2u}, {DEVICES_ORB18, 4u}, {DEVICES_ELM, 8u}};
    for (const Device &device : *device_list()) {
        unsigned family = families.at(device_group(&device));
        EXPECT_EQ(unsigned{option_DeviceType(device.name)}, family) << device.name;
        EXPECT_EQ(unsigned{option_DeviceType(lower(device.name).c_str())}, family) << device.name;
    }
}

TEST(SampleDevices, HoldTheNamesThatTheDriversDocumentsAndTestsUse)
{
    for (const char *name : {"10z02", "10z06", "12z08", "12z40", "14z12", "14z50", "16z05", "16z10",
                             "16z20a", "16z30", "16z84", "zq10", "zq16", "wtx1"})
        EXPECT_NE(device_find(name, DEVICES_ORB), nullptr) << name;
    for (const char *name : {"18z20", "18z40", "18z80"})
        EXPECT_NE(device_find(name, DEVICES_ORB18), nullptr) << name;
    for (const char *name : {"elmbig1", "elmbig2", "elmw1", "elmw2", "elmw3", "kv10", "kvmini2"})
        EXPECT_NE(device_find(name, DEVICES_ELM), nullptr) << name;
}

TEST(SampleDevices, SomeAreWrittenInCapitals)
{
    for (DeviceGroup group : {DEVICES_ORB, DEVICES_ORB18, DEVICES_ELM})
        EXPECT_TRUE(std::any_of(device_list()->begin(), device_list()->end(), [&](const Device &d) {
            return device_group(&d) == group && lower(d.name) != d.name;
        })) << group;
}

TEST(SampleDevices, AreFoundInAnyCaseAndByNumberWithOrbInFront)
{
    EXPECT_EQ(found("16Z20A", ALL), "16z20a");
    EXPECT_EQ(found("zq16", ALL), "ZQ16");
    EXPECT_EQ(found("Orb18z40", ALL), "18z40");
    EXPECT_EQ(found("orbzq16", ALL), "");
    EXPECT_EQ(found("orbelmbig1", ALL), "");
    EXPECT_EQ(found("orb", ALL), "");
    EXPECT_EQ(found("", ALL), "");
    EXPECT_EQ(found("16z20", ALL), "16z20");
    EXPECT_EQ(found("16z2", ALL), "");
}

TEST(SampleDevices, AreNotFoundInAnotherGroup)
{
    EXPECT_EQ(found("16z20a", DEVICES_ORB18 | DEVICES_ELM), "");
    EXPECT_EQ(found("18z40", DEVICES_ORB), "");
    EXPECT_EQ(found("elmbig1", DEVICES_ORB | DEVICES_ORB18), "");
}
