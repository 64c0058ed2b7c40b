// Printing the numbers of an RSA key.
#include "src/crypto.h"

#include "keygen/console.h"

#include "tests/support/captured_output.h"
#include "tests/support/library_faults.h"
#include "tests/support/library_memory.h"
#include "tests/support/private_keys.h"
#include "tests/support/test_keys.h"

#include <gtest/gtest.h>

#include <openssl/bn.h>
#include <openssl/rsa.h>

#include <cstdio>
#include <string>

namespace {

std::string hexOf(const BIGNUM *number)
{
    char *const text = BN_bn2hex(number);
    std::string digits = text;
    OPENSSL_free(text);
    return digits;
}

class DisplayRsaKeyParams : public testing::Test {
protected:
    static std::string displayed(EVP_PKEY *key)
    {
        CapturedOutput errors(2);
        CapturedOutput output;
        Crypto().DisplayRSAKeyParams(key);
        std::string text = output.text();
        EXPECT_EQ(errors.text(), "");
        return text;
    }

    static BIGNUM *number(const char *hexadecimal)
    {
        BIGNUM *result = nullptr;
        BN_hex2bn(&result, hexadecimal);
        return result;
    }

    const KeyOwner stored = StoredKey("rsa2048.pem");
    const RsaOwner rsa = RsaOwner(EVP_PKEY_get1_RSA(stored.get()));
};

TEST_F(DisplayRsaKeyParams, PrintsTheFiveNumbersInOrder)
{
    EXPECT_EQ(displayed(stored.get()), "p = 0x" + hexOf(RSA_get0_p(rsa.get())) + "\nq = 0x" +
                                           hexOf(RSA_get0_q(rsa.get())) + "\nn = 0x" +
                                           hexOf(RSA_get0_n(rsa.get())) + "\ne = 0x010001\nd = 0x" +
                                           hexOf(RSA_get0_d(rsa.get())) + "\n");
}

TEST_F(DisplayRsaKeyParams, PrintsUpperCaseDigitsInPairs)
{
    const KeyOwner key(EVP_PKEY_new());
    RSA *const small = RSA_new();
    ASSERT_EQ(EVP_PKEY_assign_RSA(key.get(), small), 1);
    RSA_set0_factors(small, number("abc"), number("d"));
    RSA_set0_key(small, number("0000abcdef"), number("0"), number("-5"));
    EXPECT_EQ(displayed(key.get()), "p = 0x0ABC\nq = 0x0D\nn = 0xABCDEF\ne = 0x0\nd = 0x-05\n");
}

TEST_F(DisplayRsaKeyParams, PrintsNullForMissingNumbers)
{
    const KeyOwner publicKey = PublicHalf(stored.get());
    EXPECT_EQ(displayed(publicKey.get()),
              "p = NULL\nq = NULL\nn = 0x" + hexOf(RSA_get0_n(rsa.get())) + "\ne = 0x010001\nd = NULL\n");
    const KeyOwner empty(EVP_PKEY_new());
    ASSERT_EQ(EVP_PKEY_assign_RSA(empty.get(), RSA_new()), 1);
    EXPECT_EQ(displayed(empty.get()), "p = NULL\nq = NULL\nn = NULL\ne = NULL\nd = NULL\n");
}

TEST_F(DisplayRsaKeyParams, PrintsOneLineForAKeyOfAnotherType)
{
    const std::string line = "Error: EVP_PKEY_get1_RSA failed\n";
    EXPECT_EQ(displayed(FixedKey(prime256v1, 5).get()), line);
    EXPECT_EQ(displayed(nullptr), line);
    const KeyOwner empty(EVP_PKEY_new());
    EXPECT_EQ(displayed(empty.get()), line);
}

TEST_F(DisplayRsaKeyParams, FlushesTheNumbersButNotTheErrorMessage)
{
    LibraryFaults faults;
    displayed(FixedKey(prime256v1, 5).get());
    EXPECT_EQ(faults.calls("fflush(stdout)"), 0);
    CapturedOutput output;
    Crypto().DisplayRSAKeyParams(stored.get());
    EXPECT_EQ(faults.calls("fflush(stdout)"), 1);
    const std::string flushed = output.flushedText();
    EXPECT_EQ(flushed, output.text());
}

TEST_F(DisplayRsaKeyParams, ContinuesIfAllocatingTheDigitsOfANumberFails)
{
    const KeyOwner publicKey = PublicHalf(stored.get());
    LibraryFaults faults;
    faults.fail("BN_bn2hex");
    EXPECT_EQ(displayed(publicKey.get()), "p = NULL\nq = NULL\ne = 0x010001\nd = NULL\n");
}

TEST_F(DisplayRsaKeyParams, WipesTheDigitsAndDoesNotReleaseTheKey)
{
    const auto run = [&] {
        ReleasedMemory memory;
        memory.searchFor(hexOf(RSA_get0_p(rsa.get())));
        displayed(stored.get());
        EXPECT_TRUE(memory.sawReleases());
        EXPECT_FALSE(memory.containedTheSecret());
    };
    EXPECT_EQ(LeakedBy(run), 0);
    EXPECT_EQ(EVP_PKEY_bits(stored.get()), 2048);
}

TEST_F(DisplayRsaKeyParams, KeepsTheOrderWithBufferedOutput)
{
    const KeyOwner key(EVP_PKEY_new());
    RSA *const small = RSA_new();
    ASSERT_EQ(EVP_PKEY_assign_RSA(key.get(), small), 1);
    RSA_set0_key(small, number("ab"), number("3"), nullptr);
    CapturedOutput output;
    std::fputs("before\n", stdout);
    MessageOut("message\n", MSG_INFO);
    Crypto().DisplayRSAKeyParams(key.get());
    std::puts("after");
    MessageOut("message\n", MSG_ERROR);
    EXPECT_EQ(output.text(), "before\n" + Info("message\n") +
                                 "p = NULL\nq = NULL\nn = 0xAB\ne = 0x03\nd = NULL\n" + "after\n" +
                                 Error("message\n"));
}

} // namespace
