#pragma once

#include "PageSource.h"

#include <QHash>
#include <QString>

// Serves stored pages from files, for tests that need no server. A URL is looked up in the map of
// pages first, then as a file in the folder named after the URL's last path segment. A load ends
// on the next turn of the event loop; a URL without a file ends as failed.
class FilePageSource final : public PageSource {
public:
    FilePageSource() = default;
    explicit FilePageSource(const QString& folder) : m_folder(folder) {}

    // The charset stands for the one an HTTP server would name in its Content-Type header.
    void AddPage(const QUrl& url, const QString& filePath, const QString& httpCharset = {});
    void SetFolder(const QString& folder) { m_folder = folder; }

    std::unique_ptr<PageLoad> Start(const QUrl& url) override;

    // How many loads were started, for tests of who loads what.
    int StartCount() const { return m_startCount; }

private:
    struct Entry {
        QString path;
        QString charset;
    };
    QHash<QUrl, Entry> m_pages;
    QString m_folder;
    int m_startCount = 0;
};
