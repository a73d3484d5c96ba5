#pragma once

#include <QByteArray>
#include <QSaveFile>
#include <QString>
#include <memory>

// Where a list or a report goes: standard output, or a file that is written whole or not at all
// (a temporary file beside it, renamed over it at the end), so a script never reads half a list.
class OutputFile final {
public:
    // An empty path or "-" is standard output.
    explicit OutputFile(const QString& path);
    // Opens the file before the run, so that a path that cannot be written is told at once and
    // not after a long search. False after printing why.
    bool Open();
    // Writes the bytes and, for a file, puts it in place. False after printing why; a file then
    // keeps what it held before.
    bool Write(const QByteArray& bytes);

private:
    QString m_path;
    std::unique_ptr<QSaveFile> m_file;
};
