// Gives every file of a directory to a fuzz target's entry point: what was found once is tried at
// every test run, with any compiler.
#include "tests/fuzz/fuzz.h"

#include <QDirIterator>
#include <QFile>

#include <cstdio>

int main(int argc, char* argv[])
{
    int count = 0;
    QDirIterator files(QString::fromLocal8Bit(argc > 1 ? argv[1] : ""), QDir::Files);
    while (files.hasNext()) {
        QFile file(files.next());
        if (!file.open(QIODevice::ReadOnly)) {
            std::fprintf(stderr, "cannot read %s\n", qPrintable(file.fileName()));
            return 1;
        }
        const QByteArray content = file.readAll();
        // Printed first, so that the last line before a crash names the culprit.
        std::printf("%s\n", qPrintable(files.fileName()));
        std::fflush(stdout);
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(content.constData()),
                               static_cast<size_t>(content.size()));
        ++count;
    }
    if (count == 0)
        std::fprintf(stderr, "no corpus in %s\n", argc > 1 ? argv[1] : "(no directory given)");
    return count == 0 ? 1 : 0;
}
