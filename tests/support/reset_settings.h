// Run settings as a new process has them.
#pragma once

/// Gives every run setting its initial value again.
void ResetSettings();
