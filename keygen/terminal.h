// Hidden entry on the terminal of standard input.
#pragma once

/// While an object lives, what is typed is not shown, and the terminal delivers it unedited. Afterwards it is
/// shown again, still unedited. A signal that ends or stops the process meanwhile finds the terminal as it
/// was before, and a continued process goes on hidden. Does nothing where standard input is no terminal. One
/// object at a time.
class HiddenEntry {
public:
    HiddenEntry();
    ~HiddenEntry();
    HiddenEntry(const HiddenEntry &) = delete;
    HiddenEntry &operator=(const HiddenEntry &) = delete;
};
