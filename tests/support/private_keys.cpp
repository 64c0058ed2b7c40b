#include "tests/support/private_keys.h"

#include "tests/support/program_run.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_keys.h"

#include <gtest/gtest.h>

#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/pem.h>

#include <cstdio>
#include <stdexcept>
#include <utility>

namespace {

std::string publicKeyFile(EVP_PKEY *key, const TemporaryFolder &folder)
{
    std::string path = folder / "public.pem";
    const FileOwner file(std::fopen(path.c_str(), "wb"));
    if (!file || PEM_write_PUBKEY(file.get(), key) != 1)
        throw std::runtime_error("cannot write the public key file");
    return path;
}

/// Whether the tool prints `word` and ends with status 0.
bool accepts(std::vector<std::string> arguments, const std::string &word)
{
    const ProgramResult result = Run("openssl", {.arguments = std::move(arguments)});
    return result.status == 0 && result.output == word;
}

} // namespace

const std::string storedPassword = "correct horse";

const std::vector<std::string> storedNames = {"rsa2048", "prime256v1", "brainpoolP256t1"};

const std::vector<std::pair<std::string, bool>> storedForms = {
    {"pem", false},
    {"aes128.pem", true},
    {"aes256.pem", true},
    {"traditional.pem", false},
    {"traditional.aes128.pem", true},
    {"traditional.aes256.pem", true},
};

std::string StoredKeyPath(const std::string &name)
{
    return TestData("private_keys/" + name);
}

KeyOwner StoredKey(const std::string &name)
{
    const FileOwner file(std::fopen(StoredKeyPath(name).c_str(), "rb"));
    KeyOwner key(file ? PEM_read_PrivateKey(file.get(), nullptr, nullptr, nullptr) : nullptr);
    if (!key)
        throw std::runtime_error("cannot read a key from " + name);
    return key;
}

KeyOwner PublicHalf(EVP_PKEY *key)
{
    const TemporaryFolder folder;
    const FileOwner file(std::fopen(publicKeyFile(key, folder).c_str(), "rb"));
    return KeyOwner(PEM_read_PUBKEY(file.get(), nullptr, nullptr, nullptr));
}

std::string EncodedSignature(const std::string &numbers)
{
    const int half = static_cast<int>(numbers.size() / 2);
    const EcdsaSignatureOwner signature(ECDSA_SIG_new());
    ECDSA_SIG_set0(signature.get(), BN_bin2bn(Bytes(numbers), half, nullptr),
                   BN_bin2bn(Bytes(numbers) + half, half, nullptr));
    std::string encoding(static_cast<std::size_t>(i2d_ECDSA_SIG(signature.get(), nullptr)), '\0');
    auto *cursor = reinterpret_cast<unsigned char *>(encoding.data());
    i2d_ECDSA_SIG(signature.get(), &cursor);
    return encoding;
}

bool OpensslAcceptsEcdsa(EVP_PKEY *key, const std::string &digest, const std::string &signature)
{
    const TemporaryFolder folder;
    WriteFile(folder / "digest", digest);
    WriteFile(folder / "signature", signature);
    return accepts({"pkeyutl", "-verify", "-pubin", "-inkey", publicKeyFile(key, folder), "-in",
                    folder / "digest", "-sigfile", folder / "signature"},
                   "Signature Verified Successfully\n");
}

bool OpensslAcceptsRsa(EVP_PKEY *key, const std::string &data, const std::string &signature)
{
    const TemporaryFolder folder;
    WriteFile(folder / "data", data);
    WriteFile(folder / "signature", signature);
    return accepts({"dgst", "-sha256", "-verify", publicKeyFile(key, folder), "-signature",
                    folder / "signature", folder / "data"},
                   "Verified OK\n");
}

std::string OutputOfOpenssl(const std::vector<std::string> &arguments)
{
    const ProgramResult result = Run("openssl", {.arguments = arguments});
    EXPECT_EQ(result.status, 0) << result.errors;
    return result.output;
}
