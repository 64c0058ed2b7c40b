// ECDSA signatures: two numbers of 32 bytes each.
#include "src/ec_crypto.h"

#include "tests/support/buffer_call.h"
#include "tests/support/captured_output.h"
#include "tests/support/library_faults.h"
#include "tests/support/library_memory.h"
#include "tests/support/private_keys.h"
#include "tests/support/test_keys.h"

#include <gtest/gtest.h>

#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/obj_mac.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

const std::string generatedLine = Info("ECDSA signature generated.\n");
const std::string verificationLine = Info("Signature verification: ");
const std::string successLines = generatedLine + verificationLine + Success("SUCCESS \n");

// SHA-256 of "message", spelled out because some tests need a library that has not been used before.
const std::string digest("\xAB\x53\x0A\x13\xE4\x59\x14\x98\x2B\x79\xF9\xB7\xE3\xFB\xA9\x94"
                         "\xCF\xD1\xF3\xFB\x22\xF7\x1C\xEA\x1A\xFB\xF0\x2B\x46\x0C\x6D\x1D");

BufferCall signedWith(EVP_PKEY *key, const std::string &data, bool giveData = true)
{
    return BufferCall([&](unsigned char **signature, std::size_t *size) {
        return EC_Crypto().sign(giveData ? Bytes(data) : nullptr, data.size(), signature, size, key);
    });
}

void expectNoSignature(EVP_PKEY *key, const std::string &message, bool giveData = true)
{
    const BufferCall result = signedWith(key, digest, giveData);
    EXPECT_EQ(result.status, -1);
    EXPECT_EQ(result.printed, Error(message));
    EXPECT_TRUE(result.isUntouched());
}

class EcSign : public testing::TestWithParam<int> {};

TEST_P(EcSign, ASignatureOfAnyDigestIsTwoNumbersOf32BytesThatTheOpensslToolVerifies)
{
    const KeyOwner key = FixedKey(GetParam(), 0x1234567);
    for (const std::size_t size : {1u, 20u, 32u, 48u, 64u}) {
        SCOPED_TRACE(size);
        std::string data(size, '\x5A');
        data.front() = '\1';
        data.back() = '\xFE';
        const BufferCall result = signedWith(key.get(), data);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.printed, successLines);
        ASSERT_EQ(result.size, 64u);
        const std::string signature = EncodedSignature(result.bytes());
        EXPECT_TRUE(OpensslAcceptsEcdsa(key.get(), data, signature));
        EXPECT_FALSE(OpensslAcceptsEcdsa(key.get(), digest, signature));
    }
}

TEST_P(EcSign, EachSignatureIsDifferent)
{
    const KeyOwner key = FixedKey(GetParam(), 77);
    const std::string numbers = signedWith(key.get(), digest).bytes();
    const std::string others = signedWith(key.get(), digest).bytes();
    EXPECT_NE(numbers.substr(0, 32), others.substr(0, 32));
    EXPECT_NE(numbers.substr(32), others.substr(32));
}

/// An encoded signature whose first or second number starts with a zero byte.
std::string signatureWithZeroByte(EC_KEY *ec, bool inSecond)
{
    for (;;) {
        std::string encoded(static_cast<std::size_t>(ECDSA_size(ec)), '\0');
        unsigned int size = 0;
        EXPECT_EQ(ECDSA_sign(0, Bytes(digest), static_cast<int>(digest.size()),
                             reinterpret_cast<unsigned char *>(encoded.data()), &size, ec),
                  1);
        encoded.resize(size);
        const unsigned char *cursor = Bytes(encoded);
        const EcdsaSignatureOwner signature(d2i_ECDSA_SIG(nullptr, &cursor, static_cast<long>(size)));
        const BIGNUM *const number =
            inSecond ? ECDSA_SIG_get0_s(signature.get()) : ECDSA_SIG_get0_r(signature.get());
        if (BN_num_bytes(number) < 32)
            return encoded;
    }
}

TEST_P(EcSign, EachNumberIsPaddedWithLeadingZeroBytes)
{
    const KeyOwner key = FixedKey(GetParam(), 77);
    const EcKeyOwner ec(EVP_PKEY_get1_EC_KEY(key.get()));
    for (const bool inSecond : {false, true}) {
        const std::string encoded = signatureWithZeroByte(ec.get(), inSecond);
        LibraryFaults faults;
        faults.replace<decltype(ECDSA_sign)>(
            "ECDSA_sign",
            [&](int, const unsigned char *, int, unsigned char *signature, unsigned int *size, EC_KEY *) {
                std::copy(encoded.begin(), encoded.end(), signature);
                *size = static_cast<unsigned int>(encoded.size());
                return 1;
            });
        const BufferCall result = signedWith(key.get(), digest);
        EXPECT_EQ(result.status, 1);
        ASSERT_EQ(result.size, 64u);
        const std::string numbers = result.bytes();
        EXPECT_EQ(numbers[inSecond ? 32 : 0], '\0');
        EXPECT_EQ(EncodedSignature(numbers), encoded);
    }
}

TEST_P(EcSign, TheDataIsCheckedAfterTheBufferIsAllocated)
{
    const KeyOwner key = FixedKey(GetParam(), 77);
    LibraryFaults faults;
    expectNoSignature(key.get(), "Error: unvalid hash pointer \n", false);
    const std::vector<std::string> steps = {"EVP_PKEY_get1_EC_KEY", "ECDSA_size", "CRYPTO_malloc"};
    EXPECT_EQ(faults.callsOf(steps), steps);
    EXPECT_EQ(faults.calls("ECDSA_sign"), 0);

    faults.fail("CRYPTO_malloc");
    expectNoSignature(key.get(), "Error: allocating signature buffer fails \n", false);
}

TEST_P(EcSign, TheEncodingIsVerifiedFirstAndThenTheParsedSignature)
{
    const KeyOwner key = FixedKey(GetParam(), 77);
    LibraryFaults faults;
    signedWith(key.get(), digest);
    const std::vector<std::string> steps = {"ECDSA_sign",      "ECDSA_verify", "d2i_ECDSA_SIG",
                                            "ECDSA_do_verify", "BN_bn2binpad", "BN_bn2binpad"};
    EXPECT_EQ(faults.callsOf(steps), steps);
}

INSTANTIATE_TEST_SUITE_P(OnBothCurves, EcSign, testing::Values(prime256v1, brainpoolP256t1),
                         [](const testing::TestParamInfo<int> &curve) {
                             return curve.param == prime256v1 ? "prime256v1" : "brainpoolP256t1";
                         });

/// Signs, and expects the engine to have allocated a buffer of this size.
std::string signedInABufferOf(std::size_t expected, EVP_PKEY *key)
{
    std::size_t allocated = 0;
    LibraryFaults faults;
    faults.replace<decltype(CRYPTO_malloc)>("CRYPTO_malloc",
                                            [&](std::size_t size, const char *file, int line) {
                                                allocated = size;
                                                return CRYPTO_zalloc(size, file, line);
                                            });
    const BufferCall result = signedWith(key, digest);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.printed, successLines);
    EXPECT_EQ(allocated, expected);
    EXPECT_EQ(result.size, 64u);
    return result.bytes();
}

TEST(EcSignature, TheBufferHasTheSizeOfTheLargestEncoding)
{
    for (const int nid : {prime256v1, brainpoolP256t1})
        signedInABufferOf(72, FixedKey(nid, 77).get());
}

TEST(EcSignature, TheBufferHoldsBothNumbersOnACurveWithAShortOrder)
{
    const KeyOwner key = FixedKey(NID_secp112r1, 77);
    const std::string numbers = signedInABufferOf(64, key.get());
    EXPECT_EQ(numbers.substr(0, 18), std::string(18, '\0'));
    EXPECT_EQ(numbers.substr(32, 18), std::string(18, '\0'));
    EXPECT_TRUE(OpensslAcceptsEcdsa(key.get(), digest, EncodedSignature(numbers)));
}

TEST(EcSignature, TheEncodedSizeIsReturnedIfANumberExceeds32Bytes)
{
    const KeyOwner key = FixedKey(NID_secp384r1, 77);
    const BufferCall result = signedWith(key.get(), digest);
    EXPECT_EQ(result.status, -1);
    EXPECT_EQ(result.printed, successLines);
    EXPECT_GT(result.size, 90u);
    EXPECT_TRUE(result.returnsBuffer());
}

TEST(EcSignature, AKeyOfAnotherTypeIsRefused)
{
    expectNoSignature(nullptr, "Error: determining signing buffer length fails \n");
    const KeyOwner rsa = StoredKey("rsa2048.pem");
    expectNoSignature(rsa.get(), "Error: determining signing buffer length fails \n");
    KeyOwner withoutCurve(EVP_PKEY_new());
    ASSERT_EQ(EVP_PKEY_assign_EC_KEY(withoutCurve.get(), EC_KEY_new()), 1);
    expectNoSignature(withoutCurve.get(), "Error: determining signing buffer length fails \n");
}

TEST(EcSignature, APublicKeyCannotSign)
{
    const KeyOwner key = FixedKey(prime256v1, 77);
    expectNoSignature(PublicHalf(key.get()).get(), "Error: Creating ECDSA signature fails!\n");
}

TEST(EcSignature, EachStepFailsWithItsOwnMessage)
{
    const KeyOwner key = FixedKey(prime256v1, 77);
    const struct {
        const char *function;
        long result;
        const char *message;
    } cases[] = {
        {"EVP_PKEY_get1_EC_KEY", 0, "Error: determining signing buffer length fails \n"},
        {"ECDSA_size", 0, "Error: determining signing buffer length fails \n"},
        {"ECDSA_size", -1, "Error: determining signing buffer length fails \n"},
        {"CRYPTO_malloc", 0, "Error: allocating signature buffer fails \n"},
        {"ECDSA_sign", 0, "Error: Creating ECDSA signature fails!\n"},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.function);
        const auto run = [&] {
            LibraryFaults faults;
            faults.fail(each.function, each.result);
            expectNoSignature(key.get(), each.message);
        };
        EXPECT_EQ(LeakedBy(run), 0);
    }
}

/// Signs with injected faults, and expects a signature regardless of the results of its verifications.
void expectVerification(const Preparation &prepare, int status, const std::string &verdict)
{
    const KeyOwner key = FixedKey(prime256v1, 77);
    const auto run = [&] {
        LibraryFaults faults;
        prepare(faults);
        const BufferCall result = signedWith(key.get(), digest);
        EXPECT_EQ(result.status, status);
        EXPECT_EQ(result.printed, generatedLine + verificationLine + verdict);
        ASSERT_EQ(result.size, 64u);
        EXPECT_TRUE(OpensslAcceptsEcdsa(key.get(), digest, EncodedSignature(result.bytes())));
    };
    EXPECT_EQ(LeakedBy(run), 0);
}

TEST(EcSignature, TheResultOfTheFirstVerificationIsPrinted)
{
    const std::string incorrect = Error("Incorrect signature!\n");
    const std::string failed = Error("Error occured during signature verification!\n");
    expectVerification(Overriding("ECDSA_verify", 0), 1, incorrect);
    expectVerification(Overriding("ECDSA_verify", -1), 1, failed);
    expectVerification(Overriding("ECDSA_verify", 2), 1, failed);
}

TEST(EcSignature, TheResultOfTheSecondVerificationIsReturned)
{
    const std::string success = Success("SUCCESS \n");
    expectVerification(Overriding("ECDSA_do_verify", 0), 0, success);
    expectVerification(Overriding("ECDSA_do_verify", -1), -1, success);
    expectVerification(
        [](LibraryFaults &faults) {
            faults.overrideResult("ECDSA_verify", 0);
            faults.overrideResult("ECDSA_do_verify", 0);
        },
        0, Error("Incorrect signature!\n"));
}

TEST(EcSignature, AWrongSignatureIsReported)
{
    const KeyOwner key = FixedKey(prime256v1, 77);
    const KeyOwner other = FixedKey(prime256v1, 78);
    const EcKeyOwner wrong(EVP_PKEY_get1_EC_KEY(other.get()));
    LibraryFaults faults;
    faults.replace<decltype(ECDSA_sign)>("ECDSA_sign", [&](int, const unsigned char *data, int size,
                                                           unsigned char *signature,
                                                           unsigned int *signatureSize, EC_KEY *) {
        const EcdsaSignatureOwner made(ECDSA_do_sign(data, size, wrong.get()));
        unsigned char *cursor = signature;
        *signatureSize = static_cast<unsigned int>(i2d_ECDSA_SIG(made.get(), &cursor));
        return 1;
    });
    const BufferCall result = signedWith(key.get(), digest);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.printed, generatedLine + verificationLine + Error("Incorrect signature!\n"));
    ASSERT_EQ(result.size, 64u);
    EXPECT_TRUE(OpensslAcceptsEcdsa(other.get(), digest, EncodedSignature(result.bytes())));
}

TEST(EcSignature, TheEncodedSizeIsReturnedIfANumberCannotBeWritten)
{
    const KeyOwner key = FixedKey(prime256v1, 77);
    for (const int number : {1, 2}) {
        for (const long written : {-1L, 31L, 33L}) {
            const auto run = [&] {
                LibraryFaults faults;
                faults.fail("BN_bn2binpad", written, number);
                const BufferCall result = signedWith(key.get(), digest);
                EXPECT_EQ(result.status, -1);
                EXPECT_EQ(result.printed, successLines);
                EXPECT_GT(result.size, 64u);
                EXPECT_LE(result.size, 72u);
                EXPECT_TRUE(result.returnsBuffer());
                EXPECT_EQ(faults.calls("BN_bn2binpad"), number);
            };
            EXPECT_EQ(LeakedBy(run), 0);
        }
    }
}

TEST(EcSignature, AnEncodingThatCannotBeParsedIsAFailure)
{
    const KeyOwner key = FixedKey(prime256v1, 77);
    LibraryFaults faults;
    faults.fail("d2i_ECDSA_SIG");
    const BufferCall result = signedWith(key.get(), digest);
    EXPECT_EQ(result.status, -1);
    EXPECT_EQ(result.printed, successLines);
    const std::string encoded = result.bytes();
    EXPECT_TRUE(OpensslAcceptsEcdsa(key.get(), digest, encoded));
}

TEST(EcSignature, SigningDoesNotReleaseTheKeyAndDoesNotLeak)
{
    const KeyOwner key = FixedKey(prime256v1, 77);
    const ReleaseWatch watch(key.get());
    EXPECT_EQ(LeakedBy([&] {
                  signedWith(key.get(), digest);
                  expectNoSignature(key.get(), "Error: unvalid hash pointer \n", false);
              }),
              0);
    EXPECT_FALSE(watch.released());
}

} // namespace
