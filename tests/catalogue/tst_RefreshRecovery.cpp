// marquill-cli refresh killed at random moments, and run into a disk that fills up: the category
// file always loads with the other site whole, and restore gives back the file from before.
#include "SiteSim.h"
#include "catalogue/CategoryCatalogue.h"
#include "catalogue/modXML.h"
#include "platform/HostHooks.h"

#include <QDir>
#include <QProcess>
#include <QRandomGenerator>
#include <QTest>
#include <csignal>
#include <sys/resource.h>
#include <unistd.h>

namespace {

struct Run {
    int exitCode = -1;
    QString err;
};

Run Cli(const QStringList& arguments, const QString& program = QStringLiteral(MARQUILL_CLI)) {
    QProcess process;
    process.start(program, arguments);
    Run run;
    if (process.waitForFinished(30000) && process.exitStatus() == QProcess::NormalExit)
        run.exitCode = process.exitCode();
    run.err = QString::fromUtf8(process.readAllStandardError());
    return run;
}

QByteArray ReadBytes(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The tree of site in the file as it lies, read from a copy (every open rewrites); empty when the
// file would not load and be kept aside.
QStringList TreeInFile(const QString& path, const QString& site) {
    QTemporaryDir scratch;
    const QString copy = scratch.filePath(QStringLiteral("aeurl.xml"));
    QStringList lines;
    Hooks().SiteLabel = [site] { return site; };
    if (QFile::copy(path, copy) && OpenCategoryFile(copy, CategoryRootName) &&
        !QFile::exists(copy + QStringLiteral(".unreadable"))) {
        ReloadCategoryTree();
        for (const CategoryNode* node : CurrentCategoryTree()->NodesInOrder())
            lines << node->FullPath() + u'\t' + node->Key();
    }
    ReleaseCategoryFile();
    return lines;
}

} // namespace

class tst_RefreshRecovery : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void killedRefreshesLeaveAFileThatLoadsAndRestores();
    void fullDiskKeepsTheLastGoodFile();
};

void tst_RefreshRecovery::killedRefreshesLeaveAFileThatLoadsAndRestores() {
    SiteSim site({QStringLiteral("--mains"), QStringLiteral("2"), QStringLiteral("--subs"),
                  QStringLiteral("6"), QStringLiteral("--latency"), QStringLiteral("1")});
    QTemporaryDir data;
    QVERIFY(site.isRunning() && data.isValid());
    const QString path = data.filePath(QStringLiteral("aeurl.xml"));
    const QStringList options{QStringLiteral("--data"), data.path(), QStringLiteral("--proxy"),
                              site.proxyUrl().toString()};
    const QStringList refreshUs =
        QStringList{QStringLiteral("refresh"), QStringLiteral("--site"), USSiteLabel} + options;
    QCOMPARE(
        Cli(QStringList{QStringLiteral("refresh"), QStringLiteral("--site"), UKSiteLabel} + options).exitCode,
        0);
    const Run full = Cli(refreshUs);
    QCOMPARE(full.exitCode, 0);
    const QByteArray former = ReadBytes(path);
    const QStringList ukTree = site.catalogue(UKSiteLabel);
    QCOMPARE(TreeInFile(path, UKSiteLabel), ukTree);

    // A kill after the n-th caption lands anywhere from that find to the next, saves included.
    const int captions = int(full.err.count(QStringLiteral("Total")));
    QRandomGenerator moments(2005);
    for (int kill = 0; kill < 20; ++kill) {
        QProcess refresh;
        refresh.start(QStringLiteral(MARQUILL_CLI), refreshUs);
        QVERIFY(refresh.waitForStarted());
        const int after = 1 + int(moments.bounded(captions));
        refresh.setReadChannel(QProcess::StandardError);
        QByteArray err;
        while (err.count("Total") < after && refresh.waitForReadyRead(20000))
            err += refresh.readAllStandardError();
        // A refresh that has already ended has no process left to kill (and id 0 would be our own group).
        if (const qint64 pid = refresh.processId(); pid > 0)
            ::kill(pid_t(pid), SIGKILL);
        QVERIFY(refresh.state() == QProcess::NotRunning || refresh.waitForFinished(10000));

        QCOMPARE(TreeInFile(path, UKSiteLabel), ukTree);
        const bool unfinished = QFile::exists(path + QStringLiteral(".refreshing"));
        if (kill % 5 == 0)
            QCOMPARE(Cli({QStringLiteral("tree"), QStringLiteral("--site"), USSiteLabel,
                          QStringLiteral("--data"), data.path()})
                         .err.contains(QStringLiteral("did not finish")),
                     unfinished);
        QCOMPARE(Cli({QStringLiteral("restore"), QStringLiteral("--data"), data.path()}).exitCode, 0);
        QCOMPARE(ReadBytes(path), former);
    }
}

void tst_RefreshRecovery::fullDiskKeepsTheLastGoodFile() {
    SiteSim site(
        {QStringLiteral("--mains"), QStringLiteral("3"), QStringLiteral("--subs"), QStringLiteral("30")});
    QTemporaryDir data;
    QVERIFY(site.isRunning() && data.isValid());
    const QString path = data.filePath(QStringLiteral("aeurl.xml"));
    const QString proxy = site.proxyUrl().toString();
    QCOMPARE(Cli({QStringLiteral("refresh"), QStringLiteral("--site"), UKSiteLabel, QStringLiteral("--data"),
                  data.path(), QStringLiteral("--proxy"), proxy})
                 .exitCode,
             0);
    const QByteArray former = ReadBytes(path);

    // Room for the file, its backup, the mark and one copy being written, and a page more. Where the
    // test may mount a small file system it does (in a mount namespace of its own, the files copied
    // out before it goes); elsewhere a file size limit stands in for the full disk.
    const qsizetype pages = (former.size() + 4095) / 4096;
    const QString script =
        QStringLiteral("mount -t tmpfs -o size=%1k tmpfs \"$1\" || exit 99; cp \"$2/aeurl.xml\" \"$1/\"; "
                       "\"$3\" refresh --site ebay.com --data \"$1\" --proxy \"$4\"; status=$?; cp -a "
                       "\"$1\"/. \"$2/\"; exit $status");
    QTemporaryDir mount;
    Run run;
    if (geteuid() == 0)
        run = Cli({QStringLiteral("--mount"), QStringLiteral("sh"), QStringLiteral("-c"),
                   script.arg(4 * (3 * pages + 2)), QStringLiteral("sh"), mount.path(), data.path(),
                   QStringLiteral(MARQUILL_CLI), proxy},
                  QStringLiteral("unshare"));
    if (run.exitCode < 0 || run.exitCode == 99) {
        QProcess refresh;
        const rlim_t limit = rlim_t(former.size() + 2000);
        refresh.setChildProcessModifier([limit] {
            std::signal(SIGXFSZ, SIG_IGN);
            const struct rlimit size { limit, limit };
            setrlimit(RLIMIT_FSIZE, &size);
        });
        refresh.start(QStringLiteral(MARQUILL_CLI),
                      {QStringLiteral("refresh"), QStringLiteral("--site"), USSiteLabel,
                       QStringLiteral("--data"), data.path(), QStringLiteral("--proxy"), proxy});
        QVERIFY(refresh.waitForFinished(30000));
        run.exitCode = refresh.exitCode();
        run.err = QString::fromUtf8(refresh.readAllStandardError());
    }

    QCOMPARE(run.exitCode, 6);
    QVERIFY(run.err.contains(QStringLiteral("Cannot save ")));
    QCOMPARE(ReadBytes(path + QStringLiteral(".bak")), former);
    // The last good file: the other site whole, and this one's finds up to the refused save.
    QCOMPARE(TreeInFile(path, UKSiteLabel), site.catalogue(UKSiteLabel));
    const QStringList usTree = TreeInFile(path, USSiteLabel);
    QVERIFY(usTree.size() > 1);
    QCOMPARE(usTree, site.catalogue(USSiteLabel).mid(0, usTree.size()));
    QCOMPARE(QDir(data.path()).entryList({QStringLiteral("*.tmp-*")}, QDir::Files), QStringList());
}

QTEST_GUILESS_MAIN(tst_RefreshRecovery)
#include "tst_RefreshRecovery.moc"
