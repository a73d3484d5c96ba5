#include "Terminal.h"

#include "CliOptions.h"
#include "HostHooks.h"
#include "modMain.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QSocketNotifier>
#include <QTimer>
#include <csignal>
#include <unistd.h>

namespace {

constexpr qint64 ProgressIntervalMs = 100;

struct ProgressLine {
    bool shown = false;
    // Draws a held-back caption when nothing newer comes in time.
    QTimer* flush = nullptr;
    QElapsedTimer sinceDrawn;
    QString drawn;
    QString pending;
};

ProgressLine& Line() {
    static ProgressLine line;
    return line;
}

void Draw(const QString& caption) {
    ProgressLine& line = Line();
    // Blanks over the tail of a longer caption drawn before.
    const qsizetype tail = std::max<qsizetype>(line.drawn.size() - caption.size(), 0);
    Err() << '\r' << caption << QString(tail, u' ') << Qt::flush;
    line.drawn = caption;
    line.pending.clear();
    line.sinceDrawn.start();
}

// The pipe the signal handler writes to: its notifier raises the flag in the event loop, so a
// run asleep in a page load wakes up for it.
int stopPipe[2] = {-1, -1};
volatile std::sig_atomic_t interrupted = 0;

void OnInterrupt(int) {
    interrupted = 1;
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(stopPipe[1], &byte, 1);
    std::signal(SIGINT, SIG_DFL);
}

} // namespace

void InstallHostHooks(const QString& site) {
    Hooks().SiteLabel = [site] { return site; };
    Hooks().MsgBox = [](const QString& text, int style, const QString&) {
        EndProgress();
        Err() << QString(text).replace(QStringLiteral("\r\n"), QStringLiteral("\n")) << '\n' << Qt::flush;
        return style == 20 ? 7 : 1;
    };
    Hooks().ExclusionFileUnreadable = [](const QString& path) {
        EndProgress();
        Err() << "warning: cannot open " << QDir::toNativeSeparators(path) << "; nothing is excluded\n"
              << Qt::flush;
    };
    Hooks().SetMainTotalCaption = ShowProgress;
}

void SetProgressShown(bool shown) {
    Line().shown = shown && ::isatty(STDERR_FILENO) == 1;
}

void ShowProgress(const QString& caption) {
    ProgressLine& line = Line();
    if (!line.shown)
        return;
    if (!line.sinceDrawn.isValid() || line.sinceDrawn.elapsed() >= ProgressIntervalMs) {
        Draw(caption);
        return;
    }
    line.pending = caption;
    if (!line.flush) {
        line.flush = new QTimer(QCoreApplication::instance());
        line.flush->setSingleShot(true);
        QObject::connect(line.flush, &QTimer::timeout, [] {
            if (!Line().pending.isEmpty())
                Draw(Line().pending);
        });
    }
    if (!line.flush->isActive())
        line.flush->start(int(ProgressIntervalMs - line.sinceDrawn.elapsed()));
}

void EndProgress() {
    ProgressLine& line = Line();
    if (!line.pending.isEmpty())
        Draw(line.pending);
    if (line.flush)
        line.flush->stop();
    if (!line.drawn.isEmpty())
        Err() << '\n' << Qt::flush;
    line.drawn.clear();
    line.sinceDrawn.invalidate();
}

void InstallInterrupt() {
    if (::pipe(stopPipe) != 0)
        return;
    auto* notifier = new QSocketNotifier(stopPipe[0], QSocketNotifier::Read, QCoreApplication::instance());
    QObject::connect(notifier, &QSocketNotifier::activated, [notifier] {
        char byte;
        [[maybe_unused]] const ssize_t got = ::read(stopPipe[0], &byte, 1);
        notifier->setEnabled(false);
        HarvestState.StopRequested = FlagTrue;
        EndProgress();
        Err() << "Stopped; press Ctrl-C again to end at once.\n" << Qt::flush;
    });
    std::signal(SIGINT, OnInterrupt);
}

bool Interrupted() {
    return interrupted != 0;
}
