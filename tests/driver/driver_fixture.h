// The fixture of the driver's tests: a fresh option state, captured messages, and conversion of
// argument vectors from and to lists of strings.
#ifndef TESTS_DRIVER_DRIVER_FIXTURE_H
#define TESTS_DRIVER_DRIVER_FIXTURE_H

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/diagnostics/alert.h"
#include "driver/families.h"
#include "driver/option_handlers.h"
#include "driver/options.h"

using Strings = std::vector<std::string>;

inline std::string gMessages; // all output of the message system during the test

class DriverTest : public testing::Test {
  protected:
    void SetUp() override
    {
        resetState();
        gMessages.clear();
        alert_setOutputHook([](const char *text) { gMessages += text; });
        options_initialize(optflag::ACTIVE, 1, nullptr);
    }
    void TearDown() override
    {
        alert_setOutputHook(nullptr);
        resetState();
    }
    static void resetState()
    {
        vec_destroy(gOptionState.libraries);
        vec_destroy(gOptionState.libraryDirectories);
        gOptionState = {};
    }

    static Vector *toVector(const Strings &texts)
    {
        Vector *vector = vec_new("driver_fixture", 1);
        for (const std::string &text : texts)
            vec_add(vector, cache_string(text.c_str()));
        return vector;
    }
    static Strings toStrings(Vector *vector)
    {
        Strings texts;
        for (const char *text : vec_each<const char>(vector))
            texts.emplace_back(text);
        vec_destroy(vector);
        return texts;
    }

    // The options that the handlers make of the arguments, without the final options.
    static Strings emitted(const Strings &arguments, OptionFamily family)
    {
        Vector *vector = toVector(arguments);
        Strings result = toStrings(options_handler(vector, family, nullptr, false, nullptr));
        vec_destroy(vector);
        return result;
    }
    // The same with the family's final options.
    static Strings emittedWithFinal(const Strings &arguments, OptionFamily family)
    {
        Vector *vector = toVector(arguments);
        Strings result = toStrings(options_handler(vector, family, nullptr, true, nullptr));
        vec_destroy(vector);
        return result;
    }
};

#endif
