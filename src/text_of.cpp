#include "src/text_of.h"

#include <QStringDecoder>

QString TextOf(QByteArrayView utf8, bool *valid)
{
    // Stateless: otherwise the decoder would hold back an incomplete character at the end instead of marking
    // it.
    QStringDecoder decoder(QStringDecoder::Utf8,
                           QStringDecoder::Flag::Stateless | QStringDecoder::Flag::ConvertInitialBom);
    QString text = decoder(utf8);
    if (valid != nullptr)
        *valid = !decoder.hasError();
    return text;
}
