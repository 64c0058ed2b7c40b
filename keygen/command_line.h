// The command line: from the argument vector to the run settings.
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

/// True for the options that are answered at once and end the run with status 0: help and version.
bool EndsTheRun(const QString &optionName);

/// Collects the options, checks every name, answers help and version, and applies the options to the run
/// settings. `arguments` is the argument vector without the program name, as received; it is wiped once it
/// has been read, along with every copy that shares its bytes. An error prints its message, in most cases
/// also the help text, and ends the process with status 1; help and version end it with status 0.
void ParseCommandLine(QList<QByteArray> arguments);

/// Wipes the names and values of all options, including those that were never applied, and with them the run
/// settings that share their characters. To be called at the end of the run.
void WipeCommandLine();
