// Hidden entry on the terminal of standard input.
#pragma once

/// While an object exists, the terminal does not show what is typed, and delivers it without line editing.
/// Afterwards it shows it again, still without line editing. If a signal ends or stops the process in
/// between, the terminal is first restored; if the process continues, entry is hidden again. Does nothing if
/// standard input is not a terminal. Only one object may exist at a time.
class HiddenEntry {
public:
    HiddenEntry();
    ~HiddenEntry();
    HiddenEntry(const HiddenEntry &) = delete;
    HiddenEntry &operator=(const HiddenEntry &) = delete;
};
