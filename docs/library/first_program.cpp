// first_program FILE: makes a key pair and signs FILE with the stored private key. The password is read
// from standard input; the signature goes to FILE.sig.
#include <key_engine/crypto.h>
#include <key_engine/ec_crypto.h>

#include <openssl/obj_mac.h>

#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

static const unsigned char *bytes(const std::string &text)
{
    return reinterpret_cast<const unsigned char *>(text.c_str());
}

int main(int argc, char **argv)
{
    const std::string name = argc > 1 ? argv[1] : "", privateKey = "privateKey.pem";
    std::ifstream input(name, std::ios::binary);
    const std::string data(std::istreambuf_iterator<char>(input), {});
    std::string password;
    if (!input || !std::getline(std::cin, password))
        return 1;

    EC_Crypto engine;
    if (engine.SetCurveNID(NID_X9_62_prime256v1) != 1 ||
        engine.GenerateKeys(bytes(privateKey), bytes("publicKey.pem"), bytes("publicKeyhash.bin"),
                            bytes(password), AES256_CBC) != 1)
        return 1;

    unsigned char *signature = nullptr; // r, then s, 32 bytes each
    size_t length = 0;
    const bool isSigned = engine.GenerateSignature(bytes(data), data.size(), bytes(privateKey),
                                                   bytes(password), &signature, &length) == 1;
    std::ofstream output(name + ".sig", std::ios::binary);
    if (isSigned)
        output.write(reinterpret_cast<char *>(signature), static_cast<std::streamsize>(length)).flush();
    engine.Buffer_Cleanup(signature); // owned by the caller, even if the signature did not verify
    return isSigned && output ? 0 : 1;
}
