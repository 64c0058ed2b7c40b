// A process that can open no more files.
#pragma once

#include <sys/resource.h>

/// For its own lifetime nothing can be opened any more, not even by root; what is open stays so.
class NoMoreFiles {
public:
    NoMoreFiles()
    {
        getrlimit(RLIMIT_NOFILE, &before);
        const rlimit none = {0, before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoMoreFiles() { setrlimit(RLIMIT_NOFILE, &before); }
    NoMoreFiles(const NoMoreFiles &) = delete;
    NoMoreFiles &operator=(const NoMoreFiles &) = delete;

private:
    rlimit before = {};
};
