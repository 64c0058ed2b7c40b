// Preloaded into the program: at the end of the run, writes the names under which the application library
// knows the program to the file that APPLICATION_NAMES names, one on each line.
#include <QCoreApplication>
#include <QFile>

#include <cstdlib>

namespace {

void writeNames()
{
    QFile file(qEnvironmentVariable("APPLICATION_NAMES"));
    if (!file.open(QIODevice::WriteOnly))
        return;
    for (const QString &name : {QCoreApplication::applicationName(), QCoreApplication::applicationVersion(),
                                QCoreApplication::organizationName()})
        file.write(name.toUtf8() + '\n');
}

// Called by the constructor of the application object: the library's own data must be destroyed after the
// names are written.
void writeNamesAtExit()
{
    std::atexit(writeNames);
}

} // namespace

Q_COREAPP_STARTUP_FUNCTION(writeNamesAtExit)
