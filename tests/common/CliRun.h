#pragma once

#include <QProcess>
#include <QStringList>

// One finished run of marquill-cli (or another program): exit code (-1 after a crash or a hang),
// the lines of standard output and the text of standard error.
struct CliRun {
    int exitCode = -1;
    QStringList out;
    QString err;
};

inline CliRun RunCli(const QStringList& arguments, const QString& program = QStringLiteral(MARQUILL_CLI)) {
    QProcess process;
    process.start(program, arguments);
    const bool ended = process.waitForFinished(120000) && process.exitStatus() == QProcess::NormalExit;
    return {ended ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts),
            QString::fromUtf8(process.readAllStandardError())};
}
