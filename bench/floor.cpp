// The floor, bare or inside an otherwise empty Qt Core program: floor plain|lean CURVE COUNT FOLDER
#include "bench/floor_work.h"

#include <openssl/objects.h>

#include <cstdlib>
#include <cstring>

#ifdef INSIDE_QT_CORE
#include <QCoreApplication>
#endif

int main(int argc, char *argv[])
{
#ifdef INSIDE_QT_CORE
    const QCoreApplication application(argc, argv);
#endif
    if (argc != 5)
        return EXIT_FAILURE;
    const auto work = std::strcmp(argv[1], "lean") == 0 ? DoLeanWork : DoFloorWork;
    work(OBJ_txt2nid(argv[2]), std::atoi(argv[3]), argv[4]);
    return EXIT_SUCCESS;
}
