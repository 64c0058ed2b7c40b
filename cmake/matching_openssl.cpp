// Succeeds when the headers at compile time and the library at run time have the same version.
#include <openssl/crypto.h>

#include <cstdio>

int main()
{
    std::printf("headers %lx, library %lx\n", static_cast<unsigned long>(OPENSSL_VERSION_NUMBER),
                OpenSSL_version_num());
    return OPENSSL_VERSION_NUMBER == OpenSSL_version_num() ? 0 : 1;
}
