#include "OutputFile.h"

#include "CliOptions.h"

#include <QDir>
#include <QFile>
#include <cstdio>

OutputFile::OutputFile(const QString& path) : m_path(path == u"-" ? QString() : path) {}

bool OutputFile::Open() {
    if (m_path.isEmpty())
        return true;
    m_file = std::make_unique<QSaveFile>(m_path);
    if (!m_file->open(QIODevice::WriteOnly)) {
        Err() << "marquill-cli: cannot write " << QDir::toNativeSeparators(m_path) << ": "
              << m_file->errorString() << '\n';
        return false;
    }
    return true;
}

bool OutputFile::Write(const QByteArray& bytes) {
    if (!m_file) {
        QFile out;
        if (!out.open(stdout, QIODevice::WriteOnly) || out.write(bytes) != bytes.size() || !out.flush()) {
            Err() << "marquill-cli: cannot write to standard output\n";
            return false;
        }
        return true;
    }
    if (m_file->write(bytes) != bytes.size() || !m_file->commit()) {
        Err() << "marquill-cli: cannot write " << QDir::toNativeSeparators(m_path) << ": "
              << m_file->errorString() << '\n';
        return false;
    }
    return true;
}
