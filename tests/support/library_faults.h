// Failures of the libraries below the engine that cannot be had by ordinary means.
//
// The program of the unit tests is linked with substitutes for the functions of the cryptographic library and
// of the C library that the engine calls: the list stands in tests/CMakeLists.txt. A substitute makes the
// call it stands for, unless a test asks for something else here. Calls inside the libraries are not
// substituted.
#pragma once

#include <openssl/crypto.h>

#include <any>
#include <functional>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

/// For its own lifetime notes the calls of the substituted functions, and makes those fail that a test asks
/// it to. A failure that was asked for and never came fails the test. There is one at a time.
class LibraryFaults {
public:
    /// In place of a number of a call.
    static constexpr int everyCall = 0;

    LibraryFaults();
    ~LibraryFaults();
    LibraryFaults(const LibraryFaults &) = delete;
    LibraryFaults &operator=(const LibraryFaults &) = delete;

    /// The `call`-th call from now on is not made and returns `result`; 0 is null where a pointer is
    /// returned.
    void fail(const std::string &function, long result = 0, int call = 1);

    /// The same, but the call is made all the same.
    void spoil(const std::string &function, long result = 0, int call = 1);

    /// Runs `action` before the `call`-th call from now on. A later fail or spoil for the same call comes on
    /// top.
    void before(const std::string &function, const std::function<void()> &action, int call = 1);

    /// Every call from now on goes to `replacement`, of the function's own type. The calls that a replacement
    /// or an action makes are neither noted nor replaced.
    template <typename Function>
    void replace(const std::string &function, const std::function<Function> &replacement)
    {
        faults.push_back({function, everyCall, Kind::Replacement, 0, {}, replacement, 0, false});
    }

    /// How often a function was called.
    int calls(const std::string &function) const;

    /// The calls of these functions in their order.
    std::vector<std::string> callsOf(std::initializer_list<std::string> functions) const;

    /// What the last call of a function with a number for its result returned.
    long lastResult(const std::string &function) const;

    enum class Kind { Failure, Spoiling, Action, Replacement };
    struct Fault {
        std::string function;
        int call;
        Kind kind;
        long result;
        std::function<void()> action;
        std::any replacement;
        int seen;
        bool met;
    };

    /// For the substitutes: notes a call and finds what is to happen to it, or null.
    const Fault *meet(const char *function);
    bool isPaused() const { return paused; }
    void pause(bool newPaused) { paused = newPaused; }
    void note(const char *function, long result) { results[function] = result; }
    static LibraryFaults *current();

private:
    std::vector<Fault> faults;
    std::vector<std::string> record;
    std::map<std::string, long> results;
    bool paused = false;
};

// Functions that go by another name from one version of the library to the next.
#if OPENSSL_VERSION_NUMBER >= 0x30000000L
constexpr const char *setCurveFunction = "EVP_PKEY_CTX_set_ec_paramgen_curve_nid";
constexpr const char *setModulusSizeFunction = "EVP_PKEY_CTX_set_rsa_keygen_bits";
constexpr const char *setPaddingFunction = "EVP_PKEY_CTX_set_rsa_padding";
constexpr const char *setDigestFunction = "EVP_PKEY_CTX_set_signature_md";
#else
constexpr const char *setCurveFunction = "EVP_PKEY_CTX_ctrl";
constexpr const char *setModulusSizeFunction = "RSA_pkey_ctx_ctrl";
constexpr const char *setPaddingFunction = "RSA_pkey_ctx_ctrl";
constexpr const char *setDigestFunction = "EVP_PKEY_CTX_ctrl";
#endif
