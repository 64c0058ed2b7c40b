// Run settings as in a new process.
#pragma once

#include "tests/support/settings.h"

#include <gtest/gtest.h>

/// Fixture for tests that set or read the run settings. It resets them before and after each test.
class FreshSettings : public testing::Test {
protected:
    FreshSettings() { ResetSettings(); }
    ~FreshSettings() override { ResetSettings(); }
};
