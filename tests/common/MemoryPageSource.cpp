#include "MemoryPageSource.h"

namespace {

class ReadyLoad final : public PageLoad {
public:
    explicit ReadyLoad(PageResponse response) : m_response(std::move(response)) {}
    bool IsFinished() const override { return true; }
    PageResponse TakeResponse() override { return std::move(m_response); }

private:
    PageResponse m_response;
};

} // namespace

std::unique_ptr<PageLoad> MemoryPageSource::Start(const QUrl& url) {
    const QString key = url.toString();
    m_requested.append(key);
    PageResponse response;
    response.finalUrl = url;
    response.httpCharset = QStringLiteral("utf-8");
    response.ok = m_pages.contains(key);
    response.body = m_pages.value(key);
    return std::make_unique<ReadyLoad>(std::move(response));
}
