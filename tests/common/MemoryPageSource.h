#pragma once

#include "harvest/PageSource.h"

#include <QHash>
#include <QStringList>

// Pages served from memory, answered at once: the window's tests drive a whole search with no
// network. Every URL asked for is recorded; an unknown URL gives an empty page.
class MemoryPageSource final : public PageSource {
public:
    void Set(const QString& url, const QByteArray& html) { m_pages.insert(url, html); }
    const QStringList& Requested() const { return m_requested; }
    void ClearRequested() { m_requested.clear(); }

    std::unique_ptr<PageLoad> Start(const QUrl& url) override;

private:
    QHash<QString, QByteArray> m_pages;
    QStringList m_requested;
};
