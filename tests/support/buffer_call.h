// A call of the engine that returns a buffer.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

/// The outcome of a call that gets a place for a buffer and one for its size. The call must print nothing on
/// standard error. A buffer that it returns is released on destruction.
class BufferCall {
public:
    explicit BufferCall(const std::function<int(unsigned char **buffer, std::size_t *size)> &call);
    ~BufferCall();
    BufferCall(const BufferCall &) = delete;
    BufferCall &operator=(const BufferCall &) = delete;

    /// Whether the call changed neither place.
    bool isUntouched() const;
    bool returnsBuffer() const;
    /// The bytes of the buffer.
    std::string bytes() const;

    unsigned char *buffer;
    std::size_t size;
    std::string flushed; ///< what had reached standard output at the return
    std::string printed;
    int status;
};
