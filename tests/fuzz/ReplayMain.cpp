// Feeds the files given, and every file of the folders given, to the target's entry point in name
// order: the regression cases and seeds of a fuzz target, run by the normal suite.
#include <QDir>
#include <QFile>
#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size);

int main(int argc, char** argv) {
    int cases = 0;
    for (int i = 1; i < argc; ++i) {
        const QString arg = QFile::decodeName(argv[i]);
        QStringList files{arg};
        if (QFileInfo(arg).isDir()) {
            files.clear();
            for (const QFileInfo& file : QDir(arg).entryInfoList(QDir::Files, QDir::Name))
                files << file.filePath();
        }
        for (const QString& path : files) {
            QFile file(path);
            if (!file.open(QIODevice::ReadOnly)) {
                std::fprintf(stderr, "cannot read %s\n", qPrintable(path));
                return 1;
            }
            const QByteArray bytes = file.readAll();
            std::fprintf(stderr, "%s\n", qPrintable(path));
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.constData()),
                                   size_t(bytes.size()));
            ++cases;
        }
    }
    std::printf("%d cases\n", cases);
    return cases > 0 ? 0 : 1;
}
