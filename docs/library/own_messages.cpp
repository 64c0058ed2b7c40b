// Linked into a program, this takes the place of the engine's MessageOut: plain text, on standard error.
#include <key_engine/console.h>

#include <iostream>

void MessageOut(QString message, MSGTYPE)
{
    std::cerr << message.toStdString();
}
