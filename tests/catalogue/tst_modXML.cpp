#include "CategoryFileBytes.h"
#include "CliRun.h"
#include "catalogue/CategoryBackup.h"

#include <QDir>
#include <optional>
#include <unistd.h>
#include <utime.h>

namespace {

const QByteArray Declaration = QByteArrayLiteral(R"(<?xml version="1.0" encoding= "ISO-8859-1"?>)");

} // namespace

class tst_modXML : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_host.emplace(); }
    void cleanup() { m_host.reset(); }
    void openWritesTheFileAsItsOwn();
    void addedEntriesFollowTheFileLayout();
    void removingOneSiteKeepsTheOtherAndSavesAfterEach();
    void categoryFileCorners();
    void cdataTerminatorStaysOneSection_data();
    void cdataTerminatorStaysOneSection();

private:
    std::optional<CatalogueHost> m_host;
};

void tst_modXML::openWritesTheFileAsItsOwn() {
    const QString& path = m_host->path;
    const auto saves = CategoryFileSaveCount();
    QVERIFY(OpenCategoryFile(path, CategoryRootName));
    QCOMPARE(CategoryFileSaveCount(), saves + 1);
    QCOMPARE(ReadBytes(path), Golden("empty.ref"));
    QCOMPARE(CategoryStore.XmlDocument->first_child().type(), pugi::node_pi);
    QCOMPARE(QDir(m_host->dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"aeurl.xml"});

    // White space between the elements, CDATA, "&", "<" and the Latin-1 letter come back as they
    // were; the declaration is ours again and an empty element is written short; a second open
    // changes nothing.
    WriteBytes(path, Golden("two_sites.xml"));
    for (int open = 0; open < 2; ++open) {
        ReleaseCategoryFile();
        QVERIFY(OpenCategoryFile(path, CategoryRootName));
        QCOMPARE(ReadBytes(path), Golden("two_sites.ref"));
    }
}

void tst_modXML::addedEntriesFollowTheFileLayout() {
    QVERIFY(!AddMainCategory("No file", "http://n/") && !AddSubCategory("No file", "http://n/s"));
    QVERIFY(OpenCategoryFile(m_host->path, CategoryRootName));
    const auto saves = CategoryFileSaveCount();
    m_host->site = UKSiteLabel;
    AddMainCategory("Toys & Games", "http://a/?x=1&y=<2>");
    m_host->site = USSiteLabel;
    AddMainCategory("Coins", "http://c/");
    AddSubCategory("Bullion", "http://c/bQQsorecordsperpageZ50");
    QCOMPARE(CategoryFileSaveCount(), saves + 3);

    // The sub-category lands in the second site element; the first keeps MainItem and MainURL only.
    QCOMPARE(ReadBytes(m_host->path),
             Declaration +
                 "<Categories>"
                 "<ebay.co.uk><MainItem><![CDATA[Toys & Games]]></MainItem>"
                 "<MainURL><![CDATA[http://a/?x=1&y=<2>]]></MainURL></ebay.co.uk>"
                 "<ebay.com><MainItem><![CDATA[Coins]]></MainItem><MainURL><![CDATA[http://c/]]></MainURL>"
                 "<SubItem><![CDATA[Bullion]]><SubURL><![CDATA[http://c/bQQsorecordsperpageZ50]]></SubURL>"
                 "</SubItem></ebay.com></Categories>");

    // After a fresh open there is no site element to add to: nothing is written.
    QVERIFY(OpenCategoryFile(m_host->path, CategoryRootName));
    const QByteArray before = ReadBytes(m_host->path);
    AddSubCategory("Orphan", "http://o/");
    QCOMPARE(ReadBytes(m_host->path), before);
}

void tst_modXML::removingOneSiteKeepsTheOtherAndSavesAfterEach() {
    WriteBytes(m_host->path, Golden("two_sites.xml"));
    QVERIFY(OpenCategoryFile(m_host->path, CategoryRootName));
    // Three US elements go, one save each and one at the end; then nothing is left to remove.
    for (const int removedSaves : {3 + 1, 1}) {
        const auto saves = CategoryFileSaveCount();
        RemoveSiteCategories(USSiteLabel);
        QCOMPARE(CategoryFileSaveCount(), saves + removedSaves);
        QCOMPARE(SiteEntries(m_host->path), (QStringList{"ebay.co.uk:Antiques", "ebay.co.uk:Stamps"}));
    }
}

void tst_modXML::categoryFileCorners() {
    const QString& path = m_host->path;
    const QTemporaryDir& dir = m_host->dir;
    const QString unreadable = path + ".unreadable";
    // Files in other encodings are read by their declaration: what Latin-1 holds stays, a URL keeps
    // the rest percent-encoded. Malformed forms are kept aside and replaced, as a missing file.
    const QByteArray entry =
        "<ebay.com><MainItem>Caf\xc3\xa9</MainItem><MainURL>http://x/\xe2\x82\xac</MainURL>"
        "<SubItem>s<SubURL>http://x/\xe2\x82\xac</SubURL></SubItem></ebay.com>";
    const QByteArray deep = QByteArray("<d>").repeated(300) + QByteArray("</d>").repeated(300);
    const QString utf16 = QStringLiteral("\ufeff<Categories>") + QString::fromUtf8(entry) + "</Categories>";
    const QList<std::pair<QByteArray, bool>> forms{
        {R"(<?xml version="1.0" encoding="UTF-8"?><Categories>)" + entry + "</Categories>", true},
        {R"(<?xml version="1.0" encoding="windows-1252"?><Categories><ebay.com><MainItem>Caf&#233;</MainItem>)"
         "<MainURL>http://x/\x80</MainURL><SubItem>s<SubURL>http://x/\x80</SubURL></SubItem></ebay.com></"
         "Categories>",
         true},
        {QByteArray(reinterpret_cast<const char*>(utf16.utf16()), utf16.size() * 2), true},
        {"<Categories>" + entry + "</Categories>trailing text", false},
        {"<Categories>" + entry + "&foo;</Categories>", false},
        {"<Categories><ebay.com><MainItem>Caf\xe9</MainItem></ebay.com></Categories>", false},
        {R"(<?xml version="1.0" encoding="no-such-encoding"?><Categories/>)", false},
        {"<Categories/><Categories/>", false},
        {"<Categories>" + deep + "</Categories>", false},
        {Golden("malformed.xml"), false},
    };
    for (const auto& [bytes, loads] : forms) {
        WriteBytes(path, bytes);
        QVERIFY(OpenCategoryFile(path, CategoryRootName));
        const pugi::xml_node site = CategoryStore.RootElement.child("ebay.com");
        QCOMPARE(CategoryNodeText(site.child("MainItem")), loads ? "Caf\u00e9" : QString());
        QCOMPARE(CategoryNodeText(site.child("MainURL")), loads ? "http://x/%E2%82%AC" : QString());
        QCOMPARE(ReadBytes(unreadable), loads ? QByteArray() : bytes);
        // The address is saved with the escapes it was read with.
        QVERIFY(ReadBytes(path).startsWith(Declaration) &&
                ReadBytes(path).count("http://x/%E2%82%AC</") == (loads ? 2 : 0));
        QFile::remove(unreadable);
    }

    // A link's escapes reach the file as written; a name loses what Latin-1 cannot hold.
    QVERIFY(OpenCategoryFile(path, CategoryRootName));
    QVERIFY(AddMainCategory("\u20ac Caf\u00e9", "http://x/%E2%82%AC/\u20ac\u00e9?q=%20"));
    QVERIFY(ReadBytes(path).contains("<![CDATA[? Caf\xe9]]><"));
    QVERIFY(ReadBytes(path).contains("<![CDATA[http://x/%E2%82%AC/%E2%82%AC\xe9?q=%20]]>"));

    // A symbolic link stays one and is written through, also when its target is not there yet;
    // temporary files of ours older than a minute go at the next open, and nothing else does.
    QVERIFY(QDir(dir.path()).mkdir("real"));
    const QString real = dir.filePath("real/aeurl.xml");
    QFile::remove(path);
    QVERIFY(QFile::link("real/aeurl.xml", path));
    const QStringList aside{real + ".tmp-Ab12Cd", real + ".tmp-Fresh1", real + ".backup"};
    for (const QString& file : aside)
        WriteBytes(file, "x");
    const struct utimbuf old { time(nullptr) - 120, time(nullptr) - 120 };
    for (const int stale : {0, 2})
        QVERIFY(utime(QFile::encodeName(aside[stale]).constData(), &old) == 0);
    QVERIFY(OpenCategoryFile(path, CategoryRootName) && AddMainCategory("Linked", "http://l/") &&
            AddMainCategory("Twice", "http://t/"));
    ReleaseCategoryFile();
    QVERIFY(QFileInfo(path).isSymLink());
    QVERIFY(ReadBytes(real).contains("Twice"));
    QCOMPARE(QDir(dir.filePath("real")).entryList(QDir::Files),
             (QStringList{"aeurl.xml", "aeurl.xml.backup", "aeurl.xml.tmp-Fresh1"}));

    // The backup before a refresh, kept over a refresh that did not finish, and put back.
    const QByteArray former = ReadBytes(path);
    QString error;
    QVERIFY(KeepCategoryBackup(path) && MarkRefreshStarted(path, USSiteLabel));
    QCOMPARE(CategoryBackupPath(path), real + ".bak");
    WriteBytes(real, "partial");
    QVERIFY(KeepCategoryBackup(path) && LastRefreshUnfinished(path));
    QVERIFY(RestoreCategoryFile(path, error));
    QVERIFY(ReadBytes(path) == former && QFileInfo(path).isSymLink() && !LastRefreshUnfinished(path));
    QFile::remove(real + ".bak");
    QVERIFY(!RestoreCategoryFile(path, error) && error.startsWith("No backup to restore"));

    // What the user may not read or write, tried by the command-line tool as an ordinary user
    // (permission bits do not bind the superuser): a file that cannot be read is left alone; a
    // read-only one is listed as it is and only a refresh refuses; a writable file in a folder that
    // takes no new file fails the open's rewrite.
    QFile::remove(path);
    const bool root = geteuid() == 0;
    const QStringList nobody{"--reuid=65534", "--regid=65534", "--clear-groups"};
    if (root && runProgram("setpriv", nobody + QStringList{"true"}).exitCode != 0)
        QSKIP("running as root without setpriv's right to become another user: permission bits cannot be "
              "tested");
    const QString program = root ? "setpriv" : QStringLiteral(MARQUILL_CLI);
    const QStringList cli = root ? nobody + QStringList{QStringLiteral(MARQUILL_CLI)} : QStringList();
    const QStringList data{"--site", USSiteLabel, "--data", dir.path()};
    const QFile::Permissions rwx = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner;
    const QList<std::tuple<QFile::Permissions, QFile::Permissions, int>> modes{
        {{}, rwx, 4},
        {QFile::ReadOwner, rwx, 0},
        {QFile::ReadOwner | QFile::WriteOwner, rwx & ~QFile::WriteOwner, 4}};
    for (const auto& [fileMode, folderMode, treeExit] : modes) {
        WriteBytes(path, forms[0].first);
        QVERIFY(!root || (chown(QFile::encodeName(path).constData(), 65534, 65534) == 0 &&
                          chown(QFile::encodeName(dir.path()).constData(), 65534, 65534) == 0));
        QVERIFY(QFile::setPermissions(path, fileMode) && QFile::setPermissions(dir.path(), folderMode));
        const Run tree = runProgram(program, cli + QStringList{"tree"} + data);
        const Run refresh = runProgram(program, cli + QStringList{"refresh"} + data);
        QFile::setPermissions(dir.path(), rwx);
        QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner);
        QCOMPARE(tree.exitCode, treeExit);
        QVERIFY(treeExit ? tree.err.contains("Cannot open " + path)
                         : tree.lines().join(u'\n').contains("Caf\u00e9"));
        QCOMPARE(refresh.exitCode, 4);
        QVERIFY(refresh.err.contains(path) && (treeExit || refresh.err.contains("write access")));
        QCOMPARE(ReadBytes(path), forms[0].first);
        QVERIFY(!QFile::exists(unreadable) && !QFile::exists(path + ".bak"));
    }
}

void tst_modXML::cdataTerminatorStaysOneSection_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("nameRead");
    QTest::addColumn<QString>("urlRead");
    QTest::newRow("in both") << "a]]>b"
                             << "http://x/a]]>bQQsorecordsperpageZ50"
                             << "a]] >b"
                             << "http://x/a]]%3EbQQsorecordsperpageZ50";
    QTest::newRow("at the ends") << "]]>x]]>"
                                 << "]]>"
                                 << "]] >x]] >"
                                 << "]]%3E";
    QTest::newRow("brackets alone") << "]]]>"
                                    << "a]]b>"
                                    << "]]] >"
                                    << "a]]b>";
}

void tst_modXML::cdataTerminatorStaysOneSection() {
    QFETCH(QString, name);
    QFETCH(QString, url);
    QFETCH(QString, nameRead);
    QFETCH(QString, urlRead);
    QVERIFY(OpenCategoryFile(m_host->path, CategoryRootName));
    AddMainCategory(name, url);
    AddSubCategory(name, url + "/s");
    ReleaseCategoryFile();
    // A second section would shift the sub-category's URL out of its place.
    LoadCategories();
    const QString main = "Select Category~" + nameRead;
    QCOMPARE(TreeLines(CurrentCategoryTree()), (QStringList{"Select Category\tRoot", main + '\t' + urlRead,
                                                            main + '~' + nameRead + '\t' + urlRead + "/s"}));
}

QTEST_GUILESS_MAIN(tst_modXML)
#include "tst_modXML.moc"
