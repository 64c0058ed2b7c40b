#include "tests/support/fresh_settings.h"

#include "keygen/run_settings.h"
#include "tests/support/reset_settings.h"

#include <algorithm>
#include <sstream>
#include <vector>

namespace {

struct Setting {
    const char *name;
    std::string value;
    std::string defaultValue;
    bool isScratch = false;
};

std::string textOf(bool value)
{
    return value ? "true" : "false";
}

std::string textOf(const QString &value)
{
    return '"' + value.toStdString() + '"';
}

std::string textOf(const QList<QString> &values)
{
    std::string text;
    for (const QString &value : values)
        text += (text.empty() ? "" : ", ") + textOf(value);
    return "[" + text + "]";
}

template <typename T>
std::string setEntries(const T &table)
{
    const auto isSet = [](const unsigned char *entry) { return entry != nullptr; };
    return std::to_string(std::count_if(table.begin(), table.end(), isSet)) + " of " +
           std::to_string(table.size());
}

std::vector<Setting> settings()
{
    return {
        {"numberKeys", std::to_string(numberKeys), "1"},
        {"numberPassword", std::to_string(numberPassword), "1"},
        {"isKeyGeneration", textOf(isKeyGeneration), "true"},
        {"isKeyNumberCommand", textOf(isKeyNumberCommand), "false"},
        {"isPasswordCmd", textOf(isPasswordCmd), "false"},
        {"isRandomCmd", textOf(isRandomCmd), "false"},
        {"password", textOf(password), "\"\""},
        {"passwordTable", textOf(passwordTable), "[]"},
        {"passwordOK", textOf(passwordOK), "false"},
        {"publicKeyPath", textOf(publicKeyPath), "\"\""},
        {"privateKeyPath", textOf(privateKeyPath), "\"\""},
        {"hashPath", textOf(hashPath), "\"\""},
        {"absolutePath", textOf(absolutePath), "\"\""},
        {"NewPath", textOf(NewPath), "\"\"", true},
        {"InfoPath", textOf(InfoPath.filePath()), "\"\"", true},
        {"tmpPath", textOf(tmpPath), "\"\""},
        {"tempabsolutePath", textOf(tempabsolutePath), "\"\""},
        {"randSize", std::to_string(randSize), "0"},
        {"randPath", textOf(randPath), "\"\""},
        {"aes128", textOf(aes128), "false"},
        {"brainpoolP256t1", textOf(brainpoolP256t1), "false"},
        {"wrongParameterAES", textOf(wrongParameterAES), "false"},
        {"wrongParameterECC", textOf(wrongParameterECC), "false"},
        {"true_command", textOf(true_command), "false", true},
        {"KeyGenVersion", textOf(KeyGenVersion), "\"v2.16.0\""},
        {"pubKeysTable", setEntries(pubKeysTable), "0 of 8"},
        {"newPubKeysHashTable", setEntries(newPubKeysHashTable), "0 of 8"},
        {"tableHashValue", textOf(tableHashValue != nullptr), "false"},
    };
}

} // namespace

std::string SettingsText()
{
    std::ostringstream text;
    for (const Setting &setting : settings())
        text << setting.name << "=" << setting.value << "\n";
    return text.str();
}

std::string FreshSettings::ChangedSettings()
{
    std::ostringstream text;
    for (const Setting &setting : settings()) {
        if (!setting.isScratch && setting.value != setting.defaultValue)
            text << setting.name << "=" << setting.value << "\n";
    }
    return text.str();
}

void FreshSettings::Reset()
{
    ResetSettings();
}
