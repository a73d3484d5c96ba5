#include "CategoryBackup.h"

#include "catalogue/CategoryFileWriter.h"

#include <QFile>
#include <QFileInfo>
#include <unistd.h>

namespace {

bool ReadWhole(const QString& path, QByteArray& bytes) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    bytes = file.readAll();
    return file.error() == QFileDevice::NoError;
}

} // namespace

QString CategoryBackupPath(const QString& path) {
    return ResolveFileLinks(path) + QStringLiteral(".bak");
}

QString RefreshMarkPath(const QString& path) {
    return ResolveFileLinks(path) + QStringLiteral(".refreshing");
}

bool KeepCategoryBackup(const QString& path) {
    const QString file = ResolveFileLinks(path);
    const QString backup = CategoryBackupPath(path);
    // Nothing to keep when there is no file, or something other than a file, which the open refuses.
    if (!QFileInfo(file).isFile() || (LastRefreshUnfinished(path) && QFileInfo::exists(backup)))
        return true;
    QByteArray bytes;
    return ReadWhole(file, bytes) && ReplaceFileContents(ResolveFileLinks(backup), bytes);
}

bool RestoreCategoryFile(const QString& path, QString& error) {
    const QString file = ResolveFileLinks(path);
    const QString backup = CategoryBackupPath(path);
    QByteArray bytes;
    if (!QFileInfo::exists(backup)) {
        error = QStringLiteral("No backup to restore: ") + backup + QStringLiteral(" does not exist.");
        return false;
    }
    if (!ReadWhole(backup, bytes)) {
        error = QStringLiteral("Cannot open ") + backup;
        return false;
    }
    if ((QFileInfo::exists(file) && ::access(QFile::encodeName(file).constData(), W_OK) != 0) ||
        !ReplaceFileContents(file, bytes)) {
        error =
            QStringLiteral("Cannot write ") + path + QStringLiteral(": restoring needs write access to it.");
        return false;
    }
    ClearRefreshMark(path);
    return true;
}

bool MarkRefreshStarted(const QString& path, const QString& siteLabel) {
    return ReplaceFileContents(RefreshMarkPath(path), siteLabel.toUtf8() + '\n');
}

void ClearRefreshMark(const QString& path) {
    QFile::remove(RefreshMarkPath(path));
}

bool LastRefreshUnfinished(const QString& path) {
    return QFileInfo::exists(RefreshMarkPath(path));
}
