#include "keygen/secrets.h"

#include <openssl/crypto.h>

namespace {

template <typename Text>
void wipe(Text &text)
{
    // A capacity of 0 means a literal, which is not secret and must not be written to.
    if (text.capacity() > 0) {
        // data() would copy shared characters, and the originals would not be wiped.
        auto *const characters = const_cast<typename Text::value_type *>(text.constData());
        OPENSSL_cleanse(characters, static_cast<std::size_t>(text.size()) * sizeof *characters);
    }
    text.clear();
}

} // namespace

void Wipe(QString &text)
{
    wipe(text);
}

void Wipe(QByteArray &text)
{
    wipe(text);
}
