#include "FilePageSource.h"

#include <QDir>
#include <QFile>
#include <QObject>
#include <QTimer>

namespace {

class FileLoad final : public PageLoad {
public:
    FileLoad(const QUrl& url, const QString& path, const QString& charset) {
        m_response.finalUrl = url;
        m_response.httpCharset = charset;
        // Read on the next turn, as a network answer would come, so callers that wait in the event
        // loop behave as they do over HTTP.
        QTimer::singleShot(0, &m_guard, [this, path] {
            if (m_finished)
                return;
            QFile file(path);
            if (!path.isEmpty() && file.open(QIODevice::ReadOnly)) {
                m_response.body = file.readAll();
                m_response.ok = true;
            } else {
                m_response.failure = PageFailure::Network;
            }
            m_finished = true;
        });
    }
    bool IsFinished() const override { return m_finished; }
    PageResponse TakeResponse() override { return std::move(m_response); }

private:
    QObject m_guard;
    PageResponse m_response;
    bool m_finished = false;
};

} // namespace

void FilePageSource::AddPage(const QUrl& url, const QString& filePath, const QString& httpCharset) {
    m_pages.insert(url, Entry{filePath, httpCharset});
}

std::unique_ptr<PageLoad> FilePageSource::Start(const QUrl& url) {
    ++m_startCount;
    const auto found = m_pages.constFind(url);
    if (found != m_pages.cend())
        return std::make_unique<FileLoad>(url, found->path, found->charset);
    QString path;
    const QString name = url.fileName();
    if (!m_folder.isEmpty() && !name.isEmpty())
        path = QDir(m_folder).filePath(name);
    return std::make_unique<FileLoad>(url, path, QString());
}
