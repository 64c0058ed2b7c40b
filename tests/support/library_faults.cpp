#include "tests/support/library_faults.h"

#include "tests/support/processor_generator.h"

#include <gtest/gtest.h>

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <dlfcn.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <tuple>
#include <type_traits>

namespace {

LibraryFaults *currentFaults = nullptr;

/// Empties the library's error queue after each test, so that no test sees the errors of another.
struct QueueCleaner : testing::EmptyTestEventListener {
    void OnTestEnd(const testing::TestInfo &) override { ERR_clear_error(); }
};

[[gnu::constructor]] void cleanTheQueueAfterEachTest()
{
    testing::UnitTest::GetInstance()->listeners().Append(new QueueCleaner); // which owns it
}

/// Active while code of a test runs in place of a function.
struct Pause {
    Pause() { LibraryFaults::current()->pause(true); }
    ~Pause() { LibraryFaults::current()->pause(false); }
    Pause(const Pause &) = delete;
    Pause &operator=(const Pause &) = delete;
};

} // namespace

LibraryFaults::LibraryFaults()
{
    EXPECT_EQ(currentFaults, nullptr) << "only one object may exist at a time";
    currentFaults = this;
    UseProcessorGenerator(false);
}

LibraryFaults::~LibraryFaults()
{
    UseProcessorGenerator(true);
    currentFaults = nullptr;
    for (const Fault &fault : faults) {
        EXPECT_TRUE(fault.met || fault.kind == Kind::Replacement)
            << fault.function << " was not called " << fault.call << " times";
    }
}

LibraryFaults *LibraryFaults::current()
{
    return currentFaults;
}

void LibraryFaults::fail(const std::string &function, long result, int call)
{
    faults.push_back({function, call, Kind::Failure, result, {}, {}});
}

void LibraryFaults::overrideResult(const std::string &function, long result, int call)
{
    faults.push_back({function, call, Kind::Spoiling, result, {}, {}});
}

void LibraryFaults::before(const std::string &function, const std::function<void()> &action, int call)
{
    faults.push_back({function, call, Kind::Action, 0, action, {}});
}

int LibraryFaults::calls(const std::string &function) const
{
    return static_cast<int>(std::count(record.begin(), record.end(), function));
}

std::vector<std::string> LibraryFaults::callsOf(const std::vector<std::string> &functions) const
{
    std::vector<std::string> calls;
    std::copy_if(record.begin(), record.end(), std::back_inserter(calls), [&](const std::string &call) {
        return std::find(functions.begin(), functions.end(), call) != functions.end();
    });
    return calls;
}

long LibraryFaults::lastResult(const std::string &function) const
{
    const auto result = results.find(function);
    EXPECT_NE(result, results.end()) << function << " was not called";
    return result != results.end() ? result->second : 0;
}

const LibraryFaults::Fault *LibraryFaults::recordCall(const char *function)
{
    record.emplace_back(function);
    const Fault *decisive = nullptr;
    for (Fault &fault : faults) {
        if (fault.function != function)
            continue;
        ++fault.seen;
        if (fault.call != everyCall && fault.call != fault.seen)
            continue;
        fault.met = true;
        if (fault.kind != Kind::Action) {
            decisive = &fault;
            continue;
        }
        const Pause whileActing;
        fault.action();
    }
    return decisive;
}

namespace {

template <typename Result>
Result resultOf(long value)
{
    if constexpr (std::is_pointer_v<Result>)
        return reinterpret_cast<Result>(value);
    else if constexpr (!std::is_void_v<Result>)
        return static_cast<Result>(value);
}

template <typename Result, typename... Arguments>
Result resultUnder(const LibraryFaults::Fault *fault, Result (*real)(Arguments...), Arguments... arguments)
{
    if (fault == nullptr)
        return real(arguments...);
    if (fault->kind == LibraryFaults::Kind::Replacement) {
        const Pause pause;
        return std::any_cast<const std::function<Result(Arguments...)> &>(fault->replacement)(arguments...);
    }
    if (fault->kind == LibraryFaults::Kind::Spoiling)
        real(arguments...);
    return resultOf<Result>(fault->result);
}

template <typename Result, typename... Arguments>
Result call(const char *name, Result (*real)(Arguments...), Arguments... arguments)
{
    LibraryFaults *const faults = LibraryFaults::current();
    if (faults == nullptr || faults->isPaused())
        return real(arguments...);
    const LibraryFaults::Fault *const fault = faults->recordCall(name);
    if constexpr (std::is_integral_v<Result>) {
        const Result result = resultUnder(fault, real, arguments...);
        faults->note(name, static_cast<long>(result));
        return result;
    } else {
        return resultUnder(fault, real, arguments...);
    }
}

template <typename Function>
struct Signature;

template <typename R, typename... Arguments>
struct Signature<R(Arguments...)> {
    using Result = R;
    template <std::size_t i>
    using Argument = std::tuple_element_t<i, std::tuple<Arguments...>>;
};

template <typename R, typename... Arguments>
struct Signature<R(Arguments...) noexcept> : Signature<R(Arguments...)> {
};

} // namespace

// The linker redirects calls of a function F to __wrap_F, and calls of __real_F to F itself.
#define ARGUMENT(function, i) Signature<decltype(function)>::Argument<i>
#define SUBSTITUTE(function, parameters, ...)                                                                \
    extern "C" decltype(function) __real_##function;                                                         \
    extern "C" Signature<decltype(function)>::Result __wrap_##function parameters;                           \
    extern "C" Signature<decltype(function)>::Result __wrap_##function parameters                            \
    {                                                                                                        \
        return call(#function, __real_##function __VA_OPT__(, ) __VA_ARGS__);                                \
    }
#define SUBSTITUTE_0(f) SUBSTITUTE(f, ())
#define SUBSTITUTE_1(f) SUBSTITUTE(f, (ARGUMENT(f, 0) a), a)
#define SUBSTITUTE_2(f) SUBSTITUTE(f, (ARGUMENT(f, 0) a, ARGUMENT(f, 1) b), a, b)
#define SUBSTITUTE_3(f) SUBSTITUTE(f, (ARGUMENT(f, 0) a, ARGUMENT(f, 1) b, ARGUMENT(f, 2) c), a, b, c)
#define SUBSTITUTE_4(f)                                                                                      \
    SUBSTITUTE(f, (ARGUMENT(f, 0) a, ARGUMENT(f, 1) b, ARGUMENT(f, 2) c, ARGUMENT(f, 3) d), a, b, c, d)
#define SUBSTITUTE_5(f)                                                                                      \
    SUBSTITUTE(f,                                                                                            \
               (ARGUMENT(f, 0) a, ARGUMENT(f, 1) b, ARGUMENT(f, 2) c, ARGUMENT(f, 3) d, ARGUMENT(f, 4) e),   \
               a, b, c, d, e)
#define SUBSTITUTE_6(f)                                                                                      \
    SUBSTITUTE(f,                                                                                            \
               (ARGUMENT(f, 0) a, ARGUMENT(f, 1) b, ARGUMENT(f, 2) c, ARGUMENT(f, 3) d, ARGUMENT(f, 4) e,    \
                ARGUMENT(f, 5) g),                                                                           \
               a, b, c, d, e, g)
#define SUBSTITUTE_7(f)                                                                                      \
    SUBSTITUTE(f,                                                                                            \
               (ARGUMENT(f, 0) a, ARGUMENT(f, 1) b, ARGUMENT(f, 2) c, ARGUMENT(f, 3) d, ARGUMENT(f, 4) e,    \
                ARGUMENT(f, 5) g, ARGUMENT(f, 6) h),                                                         \
               a, b, c, d, e, g, h)

SUBSTITUTE_2(OPENSSL_init_crypto)
SUBSTITUTE_3(CRYPTO_malloc)
SUBSTITUTE_3(CRYPTO_free)
SUBSTITUTE_4(CRYPTO_secure_clear_free)
SUBSTITUTE_2(OPENSSL_cleanse)
SUBSTITUTE_1(ERR_print_errors_fp)
SUBSTITUTE_1(ERR_print_errors)

SUBSTITUTE_2(BIO_new_fp)
SUBSTITUTE_3(BN_bn2binpad)
SUBSTITUTE_1(BN_bn2hex)

SUBSTITUTE_0(EVP_sha256)
SUBSTITUTE_0(EVP_MD_CTX_new)
SUBSTITUTE_1(EVP_MD_CTX_reset)
SUBSTITUTE_3(EVP_DigestInit_ex)
SUBSTITUTE_3(EVP_DigestUpdate)
SUBSTITUTE_3(EVP_DigestFinal_ex)

SUBSTITUTE_0(EVP_PKEY_new)
SUBSTITUTE_2(EVP_PKEY_CTX_new)
SUBSTITUTE_2(EVP_PKEY_CTX_new_id)
SUBSTITUTE_6(EVP_PKEY_CTX_ctrl)
SUBSTITUTE_5(RSA_pkey_ctx_ctrl)
SUBSTITUTE_1(EVP_PKEY_paramgen_init)
SUBSTITUTE_2(EVP_PKEY_paramgen)
SUBSTITUTE_1(EVP_PKEY_keygen_init)
SUBSTITUTE_2(EVP_PKEY_keygen)
SUBSTITUTE_1(EVP_PKEY_get1_EC_KEY)
SUBSTITUTE_1(EVP_PKEY_get1_RSA)
SUBSTITUTE_3(EVP_PKEY_assign)
SUBSTITUTE_2(EC_KEY_set_asn1_flag)
SUBSTITUTE_1(EC_KEY_check_key)
SUBSTITUTE_1(RSA_check_key)

SUBSTITUTE_1(ECDSA_size)
SUBSTITUTE_6(ECDSA_sign)
SUBSTITUTE_6(ECDSA_verify)
SUBSTITUTE_4(ECDSA_do_verify)
SUBSTITUTE_3(d2i_ECDSA_SIG)
SUBSTITUTE_1(EVP_PKEY_sign_init)
SUBSTITUTE_5(EVP_PKEY_sign)
SUBSTITUTE_1(EVP_PKEY_verify_init)
SUBSTITUTE_5(EVP_PKEY_verify)

SUBSTITUTE_2(i2d_PUBKEY)
SUBSTITUTE_1(EVP_PKEY2PKCS8)
SUBSTITUTE_6(PKCS5_pbe2_set_iv)
SUBSTITUTE_4(PKCS8_set0_pbe)
SUBSTITUTE_3(PKCS8_decrypt)
SUBSTITUTE_1(EVP_PKCS82PKEY)
SUBSTITUTE_2(PEM_write_PKCS8)
SUBSTITUTE_2(PEM_write_PUBKEY)
SUBSTITUTE_7(PEM_write_PrivateKey)
SUBSTITUTE_7(PEM_bytes_read_bio_secmem)
SUBSTITUTE_4(PEM_def_callback)

#if OPENSSL_VERSION_NUMBER >= 0x30000000L
SUBSTITUTE_0(OSSL_LIB_CTX_get0_global_default)
SUBSTITUTE_2(EVP_PKEY_CTX_set_ec_paramgen_curve_nid)
SUBSTITUTE_2(EVP_PKEY_CTX_set_rsa_keygen_bits)
SUBSTITUTE_2(EVP_PKEY_CTX_set_rsa_padding)
SUBSTITUTE_2(EVP_PKEY_CTX_set_signature_md)
#endif

// The declarations of the C library have attributes, which the macros cannot reproduce.
extern "C" {

FILE *__real_fopen(const char *, const char *);
FILE *__wrap_fopen(const char *, const char *);
FILE *__wrap_fopen(const char *path, const char *mode)
{
    return call("fopen", __real_fopen, path, mode);
}

std::size_t __real_fwrite(const void *, std::size_t, std::size_t, FILE *);
std::size_t __wrap_fwrite(const void *, std::size_t, std::size_t, FILE *);
std::size_t __wrap_fwrite(const void *bytes, std::size_t size, std::size_t count, FILE *file)
{
    return call("fwrite", __real_fwrite, bytes, size, count, file);
}

int __real_setvbuf(FILE *, char *, int, std::size_t);
int __wrap_setvbuf(FILE *, char *, int, std::size_t);
int __wrap_setvbuf(FILE *file, char *buffer, int mode, std::size_t size)
{
    return call(mode == _IONBF ? "setvbuf(none)" : "setvbuf", __real_setvbuf, file, buffer, mode, size);
}

int __real_chmod(const char *, mode_t);
int __wrap_chmod(const char *, mode_t);
int __wrap_chmod(const char *path, mode_t mode)
{
    return call("chmod", __real_chmod, path, mode);
}

int __real_flock(int, int);
int __wrap_flock(int, int);
int __wrap_flock(int file, int operation)
{
    return call("flock", __real_flock, file, operation);
}

int __real_fclose(FILE *);
int __wrap_fclose(FILE *);
int __wrap_fclose(FILE *file)
{
    return call("fclose", __real_fclose, file);
}

int __real_fflush(FILE *);
int __wrap_fflush(FILE *);
int __wrap_fflush(FILE *file)
{
    // The tests themselves flush all streams at once.
    if (file == nullptr)
        return __real_fflush(file);
    return call(file == stdout ? "fflush(stdout)" : "fflush", __real_fflush, file);
}

// Not substituted by the linker, because the application library makes the call. Its calls find this
// definition before that of the C library.
int getentropy(void *buffer, std::size_t size)
{
    using Function = int(void *, std::size_t);
    static auto *const real = reinterpret_cast<Function *>(dlsym(RTLD_NEXT, "getentropy"));
    return call("getentropy", real, buffer, size);
}
}
