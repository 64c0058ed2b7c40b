// All run settings: printing them, and resetting them to those of a new process.
#pragma once

#include <string>

/// Restores every run setting to its value at the first call, which must come before anything changes a
/// setting.
void ResetSettings();

/// Every run setting with its value, one per line, as in "numberKeys=8".
std::string SettingsText();

/// The lines of SettingsText() that differ from those at the first call of ResetSettings, without the three
/// scratch variables.
std::string ChangedSettings();
