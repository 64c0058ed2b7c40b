// Changes key files in the bytes that their base64 text encodes. Changing the text itself would hardly ever
// give valid base64.
#include "src/openssl_owners.h"

#include <openssl/pem.h>

#include <cstdint>
#include <cstring>
#include <vector>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t *data, std::size_t size, std::size_t maxSize);

namespace {

/// The number of bytes by which a block may grow.
constexpr std::size_t growth = 64;

/// The file's first block with changed bytes, or nothing if there is none.
std::vector<std::uint8_t> withChangedBlock(const std::uint8_t *data, std::size_t size)
{
    const BioOwner source(BIO_new_mem_buf(data, static_cast<int>(size)));
    char *name = nullptr;
    char *header = nullptr;
    unsigned char *bytes = nullptr;
    long length = 0;
    if (PEM_read_bio(source.get(), &name, &header, &bytes, &length) != 1)
        return {};
    const BufferOwner nameOwner(reinterpret_cast<unsigned char *>(name));
    const BufferOwner headerOwner(reinterpret_cast<unsigned char *>(header));
    const BufferOwner bytesOwner(bytes);

    std::vector<std::uint8_t> block(bytes, bytes + length);
    block.resize(block.size() + growth);
    block.resize(LLVMFuzzerMutate(block.data(), static_cast<std::size_t>(length), block.size()));
    const BioOwner file(BIO_new(BIO_s_mem()));
    PEM_write_bio(file.get(), name, header, block.data(), static_cast<long>(block.size()));
    char *text = nullptr;
    const long textLength = BIO_get_mem_data(file.get(), &text);
    return std::vector<std::uint8_t>(text, text + textLength);
}

} // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t *data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed)
{
    const std::vector<std::uint8_t> changed =
        seed % 4 == 0 ? std::vector<std::uint8_t>() : withChangedBlock(data, size);
    if (changed.empty() || changed.size() > maxSize)
        return LLVMFuzzerMutate(data, size, maxSize);
    std::memcpy(data, changed.data(), changed.size());
    return changed.size();
}
