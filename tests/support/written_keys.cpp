#include "tests/support/written_keys.h"

#include "src/openssl_owners.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_keys.h"

#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

namespace {

int copyPassword(char *buffer, int size, int, void *password)
{
    const std::string &text = *static_cast<std::string *>(password);
    return static_cast<int>(text.copy(buffer, static_cast<std::size_t>(size)));
}

} // namespace

KeyOwner OpenedKey(const std::string &path, const std::string &password)
{
    const std::string file = ReadFile(path);
    const BioOwner source(BIO_new_mem_buf(file.data(), static_cast<int>(file.size())));
    std::string copy = password;
    return KeyOwner(PEM_read_bio_PrivateKey(source.get(), nullptr, copyPassword, &copy));
}

bool OpensPrivateKey(const std::string &path, const std::string &password)
{
    return OpenedKey(path, password) != nullptr;
}

std::string PointOfPrivateKey(const std::string &path, const std::string &password)
{
    const KeyOwner key = OpenedKey(path, password);
    return key ? PointOf(key.get()) : "";
}

std::string PointOfPublicKey(const std::string &path)
{
    constexpr std::size_t pointSize = 64;
    const std::string content = ContentOfPemFile("PUBLIC KEY", ReadFile(path));
    return content.size() > pointSize ? content.substr(content.size() - pointSize) : "";
}

std::string CipherOf(const std::string &path)
{
    const std::string content = ContentOfPemFile("ENCRYPTED PRIVATE KEY", ReadFile(path));
    const unsigned char *next = Bytes(content);
    const EncryptedKeyOwner key(d2i_X509_SIG(nullptr, &next, static_cast<long>(content.size())));
    if (!key)
        return "no encrypted key";
    const X509_ALGOR *scheme = nullptr;
    X509_SIG_get0(key.get(), &scheme, nullptr);
    int type = 0;
    const void *parameters = nullptr;
    X509_ALGOR_get0(nullptr, &type, &parameters, scheme);
    if (type != V_ASN1_SEQUENCE)
        return "no encryption scheme";
    const Owner<PBE2PARAM, PBE2PARAM_free> pbes2(static_cast<PBE2PARAM *>(
        ASN1_item_unpack(static_cast<const ASN1_STRING *>(parameters), ASN1_ITEM_rptr(PBE2PARAM))));
    return pbes2 ? OBJ_nid2sn(OBJ_obj2nid(pbes2->encryption->algorithm)) : "no encryption scheme";
}

std::string CurveOf(const std::string &path)
{
    const std::string content = ContentOfPemFile("PUBLIC KEY", ReadFile(path));
    const unsigned char *next = Bytes(content);
    const Owner<X509_PUBKEY, X509_PUBKEY_free> key(
        d2i_X509_PUBKEY(nullptr, &next, static_cast<long>(content.size())));
    if (!key)
        return "no public key";
    X509_ALGOR *algorithm = nullptr;
    X509_PUBKEY_get0_param(nullptr, nullptr, nullptr, &algorithm, key.get());
    int type = 0;
    const void *curve = nullptr;
    X509_ALGOR_get0(nullptr, &type, &curve, algorithm);
    return type == V_ASN1_OBJECT ? OBJ_nid2sn(OBJ_obj2nid(static_cast<const ASN1_OBJECT *>(curve)))
                                 : "no named curve";
}
