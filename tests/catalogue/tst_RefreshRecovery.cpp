// marquill-cli refresh killed at random moments, and run into a disk that fills up: the category
// file always loads with the other site whole, and restore gives back the file from before.
#include "CategoryFileBytes.h"
#include "CliRun.h"
#include "SiteSim.h"
#include "catalogue/CategoryBackup.h"

#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTest>
#include <QThread>
#include <csignal>
#include <unistd.h>

namespace {

// The tree of site in the file as it lies, read from a copy (every open rewrites); empty when the
// file would not load and be kept aside.
QStringList TreeInFile(const QString& path, const QString& site) {
    QTemporaryDir scratch;
    const QString copy = scratch.filePath("aeurl.xml");
    Hooks().SiteLabel = [site] { return site; };
    const bool loads = QFile::copy(path, copy) && OpenCategoryFile(copy, CategoryRootName) &&
                       !QFile::exists(copy + ".unreadable");
    ReloadCategoryTree();
    ReleaseCategoryFile();
    return loads ? TreeLines(CurrentCategoryTree()) : QStringList();
}

} // namespace

class tst_RefreshRecovery : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void fullDiskAndKillsLeaveAFileThatLoadsAndRestores();
};

void tst_RefreshRecovery::fullDiskAndKillsLeaveAFileThatLoadsAndRestores() {
    SiteSim site({"--mains", "2", "--subs", "14", "--latency", "1"});
    QTemporaryDir data;
    QVERIFY(site.isRunning() && data.isValid());
    const QString path = data.filePath("aeurl.xml"), proxy = site.proxyUrl().toString();
    const QStringList options{"--data", data.path(), "--proxy", proxy};
    const QStringList refreshUs = QStringList{"refresh", "--site", USSiteLabel} + options;
    QCOMPARE(runCli(QStringList{"refresh", "--site", UKSiteLabel} + options).exitCode, 0);
    QByteArray former = ReadBytes(path);
    const QStringList ukTree = site.catalogue(UKSiteLabel);

    // A full disk: room for the file, its backup, the mark and one copy being written, and no more;
    // this site's finds take more than a page. A small file system where the test may mount one (in a mount
    // namespace of its own, the files copied out before it goes; never in the machine's own), else a file
    // size limit.
    const qsizetype pages = (former.size() + 4095) / 4096;
    const QString script =
        QStringLiteral("if [ \"$5\" = tmpfs ]; then mount -t tmpfs -o size=%1k tmpfs \"$1\" || exit 99; "
                       "else ulimit -f %2; trap '' XFSZ; fi; cp \"$2/aeurl.xml\" \"$1/\"; "
                       "\"$3\" refresh --site ebay.com --data \"$1\" --proxy \"$4\"; status=$?; cp -a "
                       "\"$1\"/. \"$2/\"; exit $status");
    const bool mayMount = geteuid() == 0 && QProcess::execute("unshare", {"--mount", "sh", "-c",
                                                                          "mount -t tmpfs tmpfs /mnt"}) == 0;
    QTemporaryDir mount;
    const Run full = runProgram(
        mayMount ? "unshare" : "sh",
        QStringList(mayMount ? QStringList{"--mount", "sh"} : QStringList()) +
            QStringList{"-c", script.arg(4 * (3 * pages + 1)).arg((former.size() + 2000) / 512), "sh",
                        mount.path(), data.path(), MARQUILL_CLI, proxy, mayMount ? "tmpfs" : "limit"});
    QCOMPARE(full.exitCode, 6);
    QVERIFY(full.err.contains("Cannot save "));
    QCOMPARE(ReadBytes(path + ".bak"), former);
    // The last good file: the other site whole, and this one's finds up to the refused save, which
    // is not counted among them.
    QCOMPARE(TreeInFile(path, UKSiteLabel), ukTree);
    const QStringList usTree = TreeInFile(path, USSiteLabel);
    const qsizetype mains = usTree.filter(QRegularExpression("^[^~]*~[^~]*\t")).size();
    QVERIFY(full.err.contains(QString("Total Found: %1 (%2)\n").arg(mains).arg(usTree.size() - 1 - mains)));
    QCOMPARE(usTree, site.catalogue(USSiteLabel).mid(0, usTree.size()));
    QCOMPARE(QDir(data.path()).entryList({"*.tmp-*"}, QDir::Files), QStringList());

    QElapsedTimer clock;
    clock.start();
    QCOMPARE(runCli(refreshUs + QStringList{"--report", mount.filePath("r")}).exitCode, 0);
    QVERIFY(ReadBytes(mount.filePath("r")).contains(R"("outcome": "completed")"));
    const qint64 runMicroseconds = clock.nsecsElapsed() / 1000;
    former = ReadBytes(path);
    // Kills at random moments of a run's length land anywhere, saves included. The last round is
    // a Ctrl-C once the first find is saved: a Stop, which says how to restore (tried again when
    // the run outpaced the signal on a busy machine).
    QRandomGenerator moments(2005);
    bool stopSeen = false;
    for (int kill = 0; kill <= 24 && !stopSeen; ++kill) {
        const bool stop = kill >= 20;
        const qsizetype requests = site.requestLog().size();
        QProcess refresh;
        refresh.start(MARQUILL_CLI, refreshUs);
        QVERIFY(refresh.waitForStarted());
        if (stop) {
            // The refresh first saves the file without the site's entries, then once per find.
            qsizetype fewest = former.count("<MainItem>");
            for (qsizetype mains = fewest; mains <= fewest && !refresh.waitForFinished(0);
                 mains = ReadBytes(path).count("<MainItem>"))
                fewest = std::min(fewest, mains);
        } else {
            // From its first page on, when the backup is made.
            // (A process's end is noticed only in a wait: there is no event loop here.)
            while (site.requestLog().size() == requests && !refresh.waitForFinished(1)) {
            }
            QThread::usleep(quint64(moments.bounded(runMicroseconds)));
        }
        // A refresh that has already ended has no process left to kill (and id 0 would be our own group).
        if (const qint64 pid = refresh.processId(); pid > 0)
            ::kill(pid_t(pid), stop ? SIGINT : SIGKILL);
        QVERIFY(refresh.state() == QProcess::NotRunning || refresh.waitForFinished(10000));
        const QByteArray err = refresh.readAllStandardError();
        stopSeen = err.contains("are partial. To put back");

        QCOMPARE(TreeInFile(path, UKSiteLabel), ukTree);
        const bool unfinished = QFile::exists(path + ".refreshing");
        // The command-line tool's word on the mark, and its restore, every fifth round; the same
        // restore in this process in the others, to keep the rounds quick.
        QString error;
        if (kill % 5 == 0) {
            const QStringList folder{"--data", data.path()};
            QCOMPARE(
                runCli(QStringList{"tree", "--site", USSiteLabel} + folder).err.contains("did not finish"),
                unfinished);
            QCOMPARE(runCli(QStringList{"restore"} + folder).exitCode, 0);
        } else {
            QVERIFY(RestoreCategoryFile(path, error));
        }
        QCOMPARE(ReadBytes(path), former);
    }
    QVERIFY(stopSeen);
}

QTEST_GUILESS_MAIN(tst_RefreshRecovery)
#include "tst_RefreshRecovery.moc"
