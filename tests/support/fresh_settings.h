// Run settings as a new process has them.
#pragma once

#include <gtest/gtest.h>

#include <string>

/// Every run setting with its value, one per line, as in "numberKeys=8".
std::string SettingsText();

/// Fixture for tests that fill or read the run settings: each starts, and leaves them, as a new process has
/// them.
class FreshSettings : public testing::Test {
protected:
    FreshSettings() { Reset(); }
    ~FreshSettings() override { Reset(); }

    static void Reset();

    /// The lines of SettingsText() that are not a new process's; without the three scratch variables.
    static std::string ChangedSettings();
};
