// Linked into a program, this replaces the engine's MessageOut: it prints plain text on standard error.
#include <key_engine/console.h>

#include <iostream>

void MessageOut(QString message, MSGTYPE)
{
    std::cerr << message.toStdString();
}
