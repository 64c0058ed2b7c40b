// What the program says about itself: the banner, the help text and the version line.
#pragma once

/// Prints the three lines that open every run.
void ShowBanner();

/// Prints the whole help text. Never ends the process: the caller decides the exit status.
void ShowHelp();

/// Prints the version line.
void ShowVersion();
