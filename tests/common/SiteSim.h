#pragma once

#include <QFile>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>
#include <QUrl>

// The sample site for a test: started on a free loopback port with the given extra arguments,
// stopped when the object goes. Every URL it was asked for is read back from its log.
class SiteSim final {
public:
    explicit SiteSim(const QStringList& arguments = {}) : m_arguments(arguments) {
        if (!m_dir.isValid())
            return;
        m_process.setProgram(QStringLiteral(MARQUILL_SITESIM));
        m_process.setArguments(
            QStringList{QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("--log"), logPath()} +
            arguments);
        m_process.setProcessChannelMode(QProcess::SeparateChannels);
        m_process.start();
        if (!m_process.waitForStarted())
            return;
        const QByteArray prefix = "listening on 127.0.0.1:";
        QByteArray line;
        // Bounded only so that a broken build ends the test instead of hanging it.
        while (!line.endsWith('\n') && m_process.waitForReadyRead(30000))
            line += m_process.readAllStandardOutput();
        if (line.startsWith(prefix))
            m_port = quint16(line.mid(prefix.size()).trimmed().toUInt());
    }
    ~SiteSim() {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.terminate();
            if (!m_process.waitForFinished(10000))
                m_process.kill();
            m_process.waitForFinished();
        }
    }
    SiteSim(const SiteSim&) = delete;
    SiteSim& operator=(const SiteSim&) = delete;

    bool isRunning() const { return m_port != 0 && m_process.state() == QProcess::Running; }
    quint16 port() const { return m_port; }
    QUrl proxyUrl() const { return QUrl(QStringLiteral("http://127.0.0.1:%1").arg(m_port)); }
    QString logPath() const { return m_dir.filePath(QStringLiteral("requests.log")); }
    QProcess& process() { return m_process; }

    QStringList requestLog() const {
        QFile file(logPath());
        if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
            return {};
        return QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }

    // The site's tree as a refresh builds it, "FullPath<TAB>URL" per node, root first.
    static QStringList catalogueOf(const QString& site, const QStringList& arguments = {}) {
        QProcess process;
        process.start(QStringLiteral(MARQUILL_SITESIM),
                      QStringList{QStringLiteral("--print-catalogue"), site} + arguments);
        if (!process.waitForFinished(30000) || process.exitCode() != 0)
            return {};
        return QString::fromUtf8(process.readAllStandardOutput())
            .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }
    // The catalogue this instance serves: the same arguments choose it.
    QStringList catalogue(const QString& site) const { return catalogueOf(site, m_arguments); }

private:
    QStringList m_arguments;
    QTemporaryDir m_dir;
    QProcess m_process;
    quint16 m_port = 0;
};
