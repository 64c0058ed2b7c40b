// The floor, bare or inside an otherwise empty Qt Core program:
//     floor plain|direct|lean|unchecked CURVE COUNT FOLDER
#include "bench/floor_work.h"

#include <openssl/objects.h>

#include <cstdlib>
#include <map>
#include <string>

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
    const std::map<std::string, decltype(&DoPlainWork)> kinds = {{"plain", DoPlainWork},
                                                                 {"direct", DoDirectWork},
                                                                 {"lean", DoLeanWork},
                                                                 {"unchecked", DoUncheckedWork}};
    kinds.at(argv[1])(OBJ_txt2nid(argv[2]), std::atoi(argv[3]), argv[4]);
    return EXIT_SUCCESS;
}
