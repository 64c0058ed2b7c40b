// Run settings as a new process has them.
#pragma once

#include "tests/support/settings.h"

#include <gtest/gtest.h>

/// Fixture for tests that fill or read the run settings: each starts, and leaves them, as a new process has
/// them.
class FreshSettings : public testing::Test {
protected:
    FreshSettings() { ResetSettings(); }
    ~FreshSettings() override { ResetSettings(); }
};
