// A staged installation for tests of code that asks the suite's programs and data files: a scratch
// directory that qzinstdir() takes for the version directory, with shell scripts for the programs.
#ifndef TESTS_DRIVER_INSTALLATION_FIXTURE_H
#define TESTS_DRIVER_INSTALLATION_FIXTURE_H

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "common/install/qzinstdir.h"
#include "driver_fixture.h"

class InstallationTest : public DriverTest {
  protected:
    void SetUp() override
    {
        DriverTest::SetUp();
        std::string name = (std::filesystem::temp_directory_path() / "suite-XXXXXX").string();
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        scratch = name;
        suite = scratch + "/v2.32";
        for (const char *folder : {"bin", "orb/bin", "elm/bin", "orb-as/bin", "legasm"})
            std::filesystem::create_directories(suite + "/" + folder);
        ASSERT_EQ(qzinstdir_set(suite.c_str()), 0);
    }
    void TearDown() override
    {
        std::error_code ignored;
        std::filesystem::remove_all(scratch, ignored);
        DriverTest::TearDown();
    }

    // Writes a file below the version directory and returns its path.
    std::string file(const std::string &name, const std::string &text) const
    {
        std::ofstream(suite + "/" + name, std::ios::binary) << text;
        return suite + "/" + name;
    }

    // The same for an executable shell script.
    std::string program(const std::string &name, const std::string &script) const
    {
        const std::string path = file(name, "#!/bin/sh\n" + script);
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
        return path;
    }

    std::string scratch;
    std::string suite; // the version directory
};

#endif
