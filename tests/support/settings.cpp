#include "tests/support/settings.h"

#include "keygen/run_settings.h"

#include <algorithm>
#include <functional>
#include <map>
#include <string_view>
#include <vector>

namespace {

std::string textOf(bool value)
{
    return value ? "true" : "false";
}

std::string textOf(int value)
{
    return std::to_string(value);
}

std::string textOf(const QString &value)
{
    return '"' + value.toStdString() + '"';
}

std::string textOf(const QFileInfo &value)
{
    return textOf(value.filePath());
}

std::string textOf(const QList<QString> &values)
{
    std::string text;
    for (const QString &value : values)
        text += (text.empty() ? "" : ", ") + textOf(value);
    return "[" + text + "]";
}

std::string textOf(const unsigned char *buffer)
{
    return textOf(buffer != nullptr);
}

std::string textOf(const std::array<unsigned char *, packetSize> &table)
{
    const auto isSet = [](const unsigned char *entry) { return entry != nullptr; };
    return std::to_string(std::count_if(table.begin(), table.end(), isSet)) + " of " +
           std::to_string(table.size());
}

/// Calls `visit` with the name of each setting and the setting itself.
template <typename Visit>
void visitSettings(const Visit &visit)
{
    // Generated from the declarations in run_settings.h, so none can be forgotten.
#include "all_settings.inc"
}

bool isScratch(std::string_view name)
{
    return name == "NewPath" || name == "InfoPath" || name == "true_command";
}

/// The texts of the settings at the first call.
const std::map<std::string_view, std::string> &textsAtStart()
{
    static const auto texts = [] {
        std::map<std::string_view, std::string> all;
        visitSettings([&](std::string_view name, const auto &setting) { all[name] = textOf(setting); });
        return all;
    }();
    return texts;
}

/// Functions that each restore one setting to its value at the first call.
const std::vector<std::function<void()>> &resets()
{
    static const auto all = [] {
        std::vector<std::function<void()>> each;
        visitSettings([&](std::string_view, auto &setting) {
            each.push_back([&setting, atStart = setting] { setting = atStart; });
        });
        return each;
    }();
    return all;
}

std::string line(std::string_view name, const std::string &text)
{
    return std::string(name) + "=" + text + "\n";
}

} // namespace

void ResetSettings()
{
    textsAtStart();
    for (const std::function<void()> &reset : resets())
        reset();
}

std::string SettingsText()
{
    std::string text;
    visitSettings([&](std::string_view name, const auto &setting) { text += line(name, textOf(setting)); });
    return text;
}

std::string ChangedSettings()
{
    std::string text;
    visitSettings([&](std::string_view name, const auto &setting) {
        if (!isScratch(name) && textOf(setting) != textsAtStart().at(name))
            text += line(name, textOf(setting));
    });
    return text;
}
