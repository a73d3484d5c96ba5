#include "NewSearch.h"

#include "platform/HostHooks.h"
#include "platform/MessageBox.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <cstdlib>

namespace {

ProcessSeams makeDefaults() {
    ProcessSeams seams;
    seams.StartDetached = [](const QString& program) { return QProcess::startDetached(program, {}); };
    // At once and with no clean-up, as the main window's Exit does: the category file is always
    // whole on disk and a results file is closed after each save, so nothing is left to write.
    seams.EndProcess = [] { std::_Exit(0); };
    seams.RunningName = [] { return RunningProgramName(); };
    return seams;
}

} // namespace

ProcessSeams& ProcessControl() {
    static ProcessSeams seams = makeDefaults();
    return seams;
}

void ResetProcessControl() {
    ProcessControl() = makeDefaults();
}

QString ExecutableSuffix() {
#ifdef Q_OS_WIN
    return QStringLiteral(".exe");
#else
    return QString();
#endif
}

QString RunningProgramName() {
    // The name it was started under, which for a link can differ from the file it points to.
    const QStringList arguments = QCoreApplication::arguments();
    const QString started = arguments.isEmpty() ? QCoreApplication::applicationFilePath() : arguments.first();
    QString name = QFileInfo(started).fileName();
    const QString suffix = ExecutableSuffix();
    if (!suffix.isEmpty() && name.endsWith(suffix, Qt::CaseInsensitive))
        name.chop(suffix.size());
    return name;
}

QString NewSearchTarget(const QString& folder, const QString& runningName) {
    const QString other =
        runningName == QLatin1String("Marquill") ? QStringLiteral("Marquillb") : QStringLiteral("Marquill");
    return folder + QLatin1Char('/') + other + ExecutableSuffix();
}

bool StartNewSearch(QWidget* parent) {
    const QString target = NewSearchTarget(ProgramFolder(), ProcessControl().RunningName());
    if (QFileInfo(target).isFile() && ProcessControl().StartDetached(target))
        return true;
    MessageBox::Show(QStringLiteral("Cannot start ") + QDir::toNativeSeparators(target), 16, QString(),
                     parent);
    return false;
}
