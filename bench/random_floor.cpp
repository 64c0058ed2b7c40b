// The least work that brings random data from the application library's generator to a file: random_floor
// SIZE FILE
#include <QCoreApplication>
#include <QRandomGenerator>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    if (argc != 3)
        return EXIT_FAILURE;
    const auto size = static_cast<std::size_t>(std::atol(argv[1]));
    const std::unique_ptr<char[]> bytes(new char[size]);
    std::array<quint64, 4096> values;
    for (std::size_t done = 0; done < size; done += values.size()) {
        const std::size_t block = std::min(size - done, values.size());
        QRandomGenerator64::system()->fillRange(values.data(), static_cast<qsizetype>(block));
        for (std::size_t i = 0; i < block; ++i)
            bytes[done + i] = static_cast<char>(values[i]);
    }
    const int file = open(argv[2], O_WRONLY | O_CREAT | O_TRUNC, 0666);
    const ssize_t written = write(file, bytes.get(), size);
    return close(file) == 0 && written == static_cast<ssize_t>(size) ? EXIT_SUCCESS : EXIT_FAILURE;
}
