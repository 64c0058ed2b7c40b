// The run settings, all of them: shown, and made those of a new process again.
#pragma once

#include <string>

/// Gives every run setting the value that it had at the first call, made before anything changes one.
void ResetSettings();

/// Every run setting with its value, one per line, as in "numberKeys=8".
std::string SettingsText();

/// The lines of SettingsText() that are not as at the first call of ResetSettings; without the three scratch
/// variables.
std::string ChangedSettings();
