#include "SummaryFixture.h"

#include <QDir>
#include <QFile>
#include <QPushButton>
#include <QStringDecoder>
#include <QTemporaryDir>
#include <QTest>

namespace {

QByteArray ReadAll(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray("<unreadable>");
    return file.readAll();
}

bool WriteAll(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

} // namespace

class tst_ResultsFile : public QObject {
    Q_OBJECT

    QList<CommonDialog::SaveRequest> m_requests;
    QTemporaryDir m_home;

    // The next dialogs answer with these paths in turn; an empty path is a cancel.
    void AnswerSaveDialog(const QStringList& paths) {
        auto queue = std::make_shared<QStringList>(paths);
        CommonDialog::SetSaveAnswer([this, queue](const CommonDialog::SaveRequest& request) {
            m_requests.append(request);
            return queue->isEmpty() ? QString() : queue->takeFirst();
        });
    }
    static void ClickBrowse(frmSummary& summary) {
        QTest::mouseClick(summary.findChild<QPushButton*>(QStringLiteral("cmdFile")), Qt::LeftButton);
    }
    static QLineEdit* FileField(frmSummary& summary) {
        return summary.findChild<QLineEdit*>(QStringLiteral("txtFileName"));
    }

private Q_SLOTS:
    void initTestCase() {
        // A home of the test's own, without Documents until a test makes one.
        qputenv("HOME", m_home.path().toUtf8());
        qputenv("XDG_CONFIG_HOME", m_home.filePath(QStringLiteral(".config")).toUtf8());
    }
    void init() {
        ResetSummarySeams();
        m_requests.clear();
    }

    void browseWritesTheRowsInListOrder() {
        FillKeywordTable({{QStringLiteral("Nice"), 9},
                          {QStringLiteral("MINT"), 10},
                          {QStringLiteral("a,b"), 3},
                          {QStringLiteral("box"), 9}});
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("results.txt"));
        AnswerSaveDialog({path});
        frmSummary summary(nullptr);
        summary.SetDateSource([] { return QDate(2026, 3, 5); });
        ClickBrowse(summary);

        QCOMPARE(ReadAll(path), QByteArray("mint,10\r\nnice,9\r\nbox,9\r\na,b,3\r\n"));
        QCOMPARE(m_requests.size(), 1);
        QCOMPARE(m_requests[0].initDir, m_home.path());
        QCOMPARE(m_requests[0].filter, QStringLiteral("Text (*.txt)"));
        QCOMPARE(m_requests[0].fileName, QStringLiteral("Keywords 05.03.2026.txt"));
        QCOMPARE(FileField(summary)->text(), path);
        QCOMPARE(summary.ResultsPath(), path);
        QCOMPARE(ScreenPointer::Current(), ScreenPointer::Default);
        QVERIFY(MessageBox::ShownBoxes().isEmpty());
    }

    void wordsGoOutInTheLocaleEncoding() {
        FillKeywordTable({{QStringLiteral("Caf\u00e9"), 2}});
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("accents.txt"));
        AnswerSaveDialog({path});
        frmSummary summary(nullptr);
        ClickBrowse(summary);
        QStringDecoder decoder(QStringConverter::System);
        QCOMPARE(QString(decoder.decode(ReadAll(path))), QStringLiteral("caf\u00e9,2\r\n"));
    }

    void emptyListGivesAnEmptyFile() {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("empty.txt"));
        AnswerSaveDialog({path});
        frmSummary summary(nullptr);
        ClickBrowse(summary);
        QCOMPARE(m_requests.size(), 1);
        QVERIFY(QFile::exists(path));
        QCOMPARE(ReadAll(path), QByteArray());
    }

    void cancelChangesNothing() {
        FillKeywordTable({{QStringLiteral("mint"), 1}});
        AnswerSaveDialog({QString()});
        frmSummary summary(nullptr);
        ClickBrowse(summary);
        QCOMPARE(m_requests.size(), 1);
        QCOMPARE(FileField(summary)->text(), QStringLiteral("Please select a location..."));
        QVERIFY(summary.ResultsPath().isEmpty());
    }

    void refusedOverwriteLeavesTheOldFile() {
        FillKeywordTable({{QStringLiteral("mint"), 1}});
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("old.txt"));
        const QByteArray old("keep\r\nme\0as I am", 16);
        QVERIFY(WriteAll(path, old));
        AnswerSaveDialog({path});
        MessageBox::SetNextAnswer(MessageBox::AnswerNo);
        frmSummary summary(nullptr);
        ClickBrowse(summary);

        QCOMPARE(ReadAll(path), old);
        QCOMPARE(MessageBox::ShownBoxes().size(), 1);
        QCOMPARE(MessageBox::ShownBoxes()[0].text, QStringLiteral("The file already exists. Overwrite ?"));
        QCOMPARE(MessageBox::ShownBoxes()[0].style, 20);
        QCOMPARE(MessageBox::ShownBoxes()[0].title, QStringLiteral("File Exists"));
        QCOMPARE(FileField(summary)->text(), path);
        QCOMPARE(ScreenPointer::Current(), ScreenPointer::Default);
    }

    void acceptedOverwriteReplacesTheFile() {
        FillKeywordTable({{QStringLiteral("mint"), 2}, {QStringLiteral("coin"), 1}});
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("old.txt"));
        QVERIFY(WriteAll(path, QByteArray(5000, 'x')));
        AnswerSaveDialog({path});
        MessageBox::SetNextAnswer(MessageBox::AnswerYes);
        frmSummary summary(nullptr);
        ClickBrowse(summary);
        QCOMPARE(ReadAll(path), QByteArray("mint,2\r\ncoin,1\r\n"));
        QCOMPARE(MessageBox::ShownBoxes().size(), 1);
    }

    void readOnlyTargetFailsSilentlyAndTheWindowGoesOn() {
        FillKeywordTable({{QStringLiteral("mint"), 2}});
        QTemporaryDir dir;
        const QString locked = dir.filePath(QStringLiteral("locked.txt"));
        const QString other = dir.filePath(QStringLiteral("other.txt"));
        QVERIFY(WriteAll(locked, "locked"));
        QVERIFY(QFile::setPermissions(locked, QFileDevice::ReadOwner | QFileDevice::ReadUser));
        AnswerSaveDialog({locked, other});
        MessageBox::SetNextAnswer(MessageBox::AnswerYes);
        frmSummary summary(nullptr);
        summary.show();
        ClickBrowse(summary);

        QCOMPARE(ReadAll(locked), QByteArray("locked"));
        QCOMPARE(MessageBox::ShownBoxes().size(), 1);
        QCOMPARE(ScreenPointer::Current(), ScreenPointer::Default);
        QVERIFY(summary.isVisible());
        QCOMPARE(FileField(summary)->text(), locked);

        ClickBrowse(summary);
        QCOMPARE(ReadAll(other), QByteArray("mint,2\r\n"));
        QCOMPARE(summary.ResultsPath(), other);
        QFile::setPermissions(locked, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    }

    void unwritableFolderFailsSilently() {
        FillKeywordTable({{QStringLiteral("mint"), 2}});
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("no such folder/results.txt"));
        AnswerSaveDialog({path});
        frmSummary summary(nullptr);
        ClickBrowse(summary);
        QVERIFY(!QFile::exists(path));
        QVERIFY(MessageBox::ShownBoxes().isEmpty());
        QCOMPARE(ScreenPointer::Current(), ScreenPointer::Default);
        QCOMPARE(FileField(summary)->text(), path);
    }

    void fieldEntryOnlyShowsTheChoice() {
        FillKeywordTable({{QStringLiteral("mint"), 2}});
        QTemporaryDir dir;
        SetProgramFolder(dir.path());
        const QString chosen = dir.filePath(QStringLiteral("chosen.txt"));
        AnswerSaveDialog({chosen, QString()});
        frmSummary summary(nullptr);
        summary.SetDateSource([] { return QDate(2026, 12, 31); });
        summary.show();
        QTest::mouseDClick(FileField(summary), Qt::LeftButton);

        QCOMPARE(m_requests.size(), 1);
        QCOMPARE(m_requests[0].initDir, dir.path());
        QCOMPARE(m_requests[0].fileName, QStringLiteral("Keywords 31.12.2026.txt"));
        QCOMPARE(FileField(summary)->text(), chosen);
        QVERIFY(!QFile::exists(chosen));
        QVERIFY(summary.ResultsPath().isEmpty());

        // The browse entry afterwards starts again from Documents, now there is one, and the default name.
        QVERIFY(QDir(m_home.path()).mkpath(QStringLiteral("Documents")));
        ClickBrowse(summary);
        QCOMPARE(m_requests.size(), 2);
        QCOMPARE(m_requests[1].initDir, m_home.filePath(QStringLiteral("Documents")));
        QCOMPARE(m_requests[1].fileName, QStringLiteral("Keywords 31.12.2026.txt"));
        SetProgramFolder(QString());
    }

    void defaultNameTakesTheDateWhenTheDialogOpens() {
        QDate today(2026, 1, 9);
        AnswerSaveDialog({QString(), QString()});
        frmSummary summary(nullptr);
        summary.SetDateSource([&today] { return today; });
        ClickBrowse(summary);
        today = today.addDays(1);
        ClickBrowse(summary);
        QCOMPARE(m_requests.size(), 2);
        QCOMPARE(m_requests[0].fileName, QStringLiteral("Keywords 09.01.2026.txt"));
        QCOMPARE(m_requests[1].fileName, QStringLiteral("Keywords 10.01.2026.txt"));
        QCOMPARE(frmSummary::DefaultResultsFileName(QDate(2031, 11, 2)),
                 QStringLiteral("Keywords 02.11.2031.txt"));
    }
};

QTEST_MAIN(tst_ResultsFile)
#include "tst_ResultsFile.moc"
