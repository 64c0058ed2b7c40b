#include "tests/support/buffer_call.h"

#include "tests/support/captured_output.h"

#include <gtest/gtest.h>

#include <openssl/crypto.h>

namespace {

unsigned char untouchedByte;
constexpr std::size_t untouchedSize = 12345;

} // namespace

BufferCall::BufferCall(const std::function<int(unsigned char **, std::size_t *)> &call)
    : buffer(&untouchedByte), size(untouchedSize)
{
    CapturedOutput errors(2);
    CapturedOutput output;
    status = call(&buffer, &size);
    flushed = output.flushedText();
    printed = output.text();
    EXPECT_EQ(errors.text(), "");
    EXPECT_EQ(untouchedByte, 0);
}

BufferCall::~BufferCall()
{
    if (returnsBuffer())
        OPENSSL_free(buffer);
}

bool BufferCall::isUntouched() const
{
    return !returnsBuffer() && size == untouchedSize;
}

bool BufferCall::returnsBuffer() const
{
    return buffer != &untouchedByte;
}

std::string BufferCall::bytes() const
{
    return returnsBuffer() ? std::string(reinterpret_cast<const char *>(buffer), size) : "untouched";
}
