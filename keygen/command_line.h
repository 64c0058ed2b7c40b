// The command line: from the argument vector to the run settings.
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

/// Whether the option is answered at once and ends the run with status 0: help and version.
bool EndsTheRun(const QString &optionName);

/// Collects the options, checks every name, answers help and version, and applies the options to the run
/// settings. `arguments` is the argument vector less the program name, as received; once it was read it is
/// wiped, with every copy that shares its bytes. An error prints its message, for most errors the help text
/// too, and ends the process with status 1; help and version end it with status 0.
void ParseCommandLine(QList<QByteArray> arguments);

/// Wipes the names and values of all options, also of those that were never applied, and with them the run
/// settings that share their characters: for the end of the run.
void WipeCommandLine();
