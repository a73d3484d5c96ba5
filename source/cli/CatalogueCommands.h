#pragma once

#include <QStringList>

// marquill-cli tree: the category tree of a site, one "FullPath<TAB>URL" line per node.
int RunTreeCommand(const QStringList& arguments);
// marquill-cli refresh: crawls a site's category pages into the category file.
int RunRefreshCommand(const QStringList& arguments);
// marquill-cli restore: puts back the category file from before the last refresh.
int RunRestoreCommand(const QStringList& arguments);
