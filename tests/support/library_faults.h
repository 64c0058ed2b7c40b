// Failures of the libraries below the engine that ordinary means cannot cause.
//
// The unit tests are linked with substitutes for the functions of the cryptographic library and of the C
// library that the engine calls; tests/CMakeLists.txt lists them. A substitute calls the real function unless
// a test requests something else here. Calls inside the libraries are not substituted.
#pragma once

#include <openssl/crypto.h>

#include <any>
#include <functional>
#include <map>
#include <string>
#include <vector>

/// During its lifetime, records the calls of the substituted functions, and makes those fail that a test
/// selects. A requested failure that never happens fails the test. Only one object may exist at a time.
class LibraryFaults {
public:
    /// Use instead of a call number.
    static constexpr int everyCall = 0;

    LibraryFaults();
    ~LibraryFaults();
    LibraryFaults(const LibraryFaults &) = delete;
    LibraryFaults &operator=(const LibraryFaults &) = delete;

    /// The `call`-th call from now on is not made and returns `result`. If the function returns a pointer, 0
    /// means null.
    void fail(const std::string &function, long result = 0, int call = 1);

    /// The same, but the call is made nevertheless.
    void overrideResult(const std::string &function, long result = 0, int call = 1);

    /// Runs `action` before the `call`-th call from now on. A later failure requested for the same call is
    /// applied in addition.
    void before(const std::string &function, const std::function<void()> &action, int call = 1);

    /// Every call from now on goes to `replacement`, which has the function's own type. Calls made by a
    /// replacement or by an action are neither recorded nor replaced.
    template <typename Function>
    void replace(const std::string &function, const std::function<Function> &replacement)
    {
        faults.push_back({function, everyCall, Kind::Replacement, 0, {}, replacement});
    }

    /// How often a function was called.
    int calls(const std::string &function) const;

    /// The calls of these functions, in order.
    std::vector<std::string> callsOf(const std::vector<std::string> &functions) const;

    /// What the last call of a function that returns a number returned.
    long lastResult(const std::string &function) const;

    enum class Kind { Failure, Spoiling, Action, Replacement };
    struct Fault {
        std::string function;
        int call;
        Kind kind;
        long result;
        std::function<void()> action;
        std::any replacement;
        int seen = 0;
        bool met = false;
    };

    /// For the substitutes: records a call and returns the fault that applies to it, or null.
    const Fault *recordCall(const char *function);
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

/// What a test requests before it makes a call.
using Preparation = std::function<void(LibraryFaults &)>;

/// Requests what fail() requests.
inline Preparation Failing(const std::string &function, long result = 0, int call = 1)
{
    return [=](LibraryFaults &faults) { faults.fail(function, result, call); };
}

/// Requests what overrideResult() requests.
inline Preparation Overriding(const std::string &function, long result = 0, int call = 1)
{
    return [=](LibraryFaults &faults) { faults.overrideResult(function, result, call); };
}

// Functions whose names differ between versions of the library.
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
