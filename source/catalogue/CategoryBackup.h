#pragma once

#include <QString>

// What keeps a refresh from losing the tree: the file as it stood before the refresh, kept beside
// it as "aeurl.xml.bak", and a mark that a refresh is under way, which only a refresh that never
// reached its end (killed, or its machine gone) leaves behind. Both lie beside the file itself,
// behind any symbolic link.

QString CategoryBackupPath(const QString& path);
QString RefreshMarkPath(const QString& path);

// Copies the file to its backup, replacing the former backup. After a refresh that did not finish,
// the backup still holds the file from before that refresh and is kept instead. True also when
// there is no file to keep.
bool KeepCategoryBackup(const QString& path);
// Puts the backup in the file's place; the backup stays. False with the reason in error.
bool RestoreCategoryFile(const QString& path, QString& error);

bool MarkRefreshStarted(const QString& path, const QString& siteLabel);
void ClearRefreshMark(const QString& path);
bool LastRefreshUnfinished(const QString& path);
