// The floor inside an otherwise empty Qt Core program: floor plain|lean CURVE COUNT FOLDER
#include "bench/floor_work.h"

#include <openssl/objects.h>

#include <QCoreApplication>

#include <cstdlib>
#include <cstring>

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    if (argc != 5)
        return EXIT_FAILURE;
    const auto work = std::strcmp(argv[1], "lean") == 0 ? DoLeanWork : DoPlainWork;
    work(OBJ_txt2nid(argv[2]), std::atoi(argv[3]), argv[4]);
    return EXIT_SUCCESS;
}
