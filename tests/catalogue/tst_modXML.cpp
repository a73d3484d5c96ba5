#include "CatalogueTree.h"
#include "CategoryFileBytes.h"
#include "CliRun.h"
#include "catalogue/CategoryBackup.h"
#include "catalogue/modXML.h"
#include "harvest/modMain.h"
#include "platform/HostHooks.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <unistd.h>
#include <utime.h>

namespace {

const QByteArray Declaration = QByteArrayLiteral(R"(<?xml version="1.0" encoding= "ISO-8859-1"?>)");

// The tags of the root's element children, in order.
QStringList SiteTags() {
    QStringList tags;
    for (pugi::xml_node child = CategoryStore.RootElement.first_child(); child; child = child.next_sibling())
        if (child.type() == pugi::node_element)
            tags << QString::fromUtf8(child.name());
    return tags;
}

} // namespace

class tst_modXML : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void createsMissingFileWithInstructionAndEmptyRoot();
    void reopeningChangesNoEntryAndRestoresDeclaration();
    void addedEntriesFollowTheFileLayout();
    void removingOneSiteKeepsTheOtherAndSavesAfterEach();
    void categoryFileCorners();
    void cdataTerminatorStaysOneSection_data();
    void cdataTerminatorStaysOneSection();

private:
    QTemporaryDir m_dir;
    QString m_path;
};

void tst_modXML::init() {
    QVERIFY(m_dir.isValid());
    m_path = m_dir.filePath(QStringLiteral("aeurl.xml"));
    QFile::remove(m_path);
    ResetHooks();
    ReleaseCategoryFile();
    CategoryStore.CategoryFilePath = m_path;
}

void tst_modXML::cleanup() {
    ReleaseCategoryFile();
    QDir(m_dir.path()).removeRecursively();
    QDir().mkpath(m_dir.path());
}

void tst_modXML::createsMissingFileWithInstructionAndEmptyRoot() {
    const auto saves = CategoryFileSaveCount();
    QVERIFY(OpenCategoryFile(m_path, QStringLiteral("Categories")));
    QCOMPARE(CategoryFileSaveCount(), saves + 1);
    QCOMPARE(ReadBytes(m_path), Golden("empty.ref"));
    QCOMPARE(QString::fromUtf8(CategoryStore.RootElement.name()), QStringLiteral("Categories"));
    // The instruction is the document's first node, target and data to the byte.
    const pugi::xml_node first = CategoryStore.XmlDocument->first_child();
    QCOMPARE(first.type(), pugi::node_pi);
    QCOMPARE(QByteArray(first.name()), QByteArray("xml"));
    QCOMPARE(QByteArray(first.value()), QByteArray(R"(version="1.0" encoding= "ISO-8859-1")"));
    // Nothing but the saved file is left in the folder.
    QCOMPARE(QDir(m_dir.path()).entryList(QDir::Files | QDir::Hidden),
             QStringList{QStringLiteral("aeurl.xml")});
}

void tst_modXML::reopeningChangesNoEntryAndRestoresDeclaration() {
    WriteBytes(m_path, Golden("two_sites.xml"));
    QVERIFY(OpenCategoryFile(m_path, QStringLiteral("Categories")));
    // White space between the elements, CDATA, "&", "<" and the Latin-1 letter come back as they
    // were; the declaration is ours again and an empty element is written short.
    QCOMPARE(ReadBytes(m_path), Golden("two_sites.ref"));
    QVERIFY(ReadBytes(m_path).startsWith(Declaration));

    ReleaseCategoryFile();
    QVERIFY(OpenCategoryFile(m_path, QStringLiteral("Categories")));
    QCOMPARE(ReadBytes(m_path), Golden("two_sites.ref"));

    const pugi::xml_node dolls = CategoryStore.RootElement.child("ebay.com").child("SubItem");
    QCOMPARE(dolls.first_child().type(), pugi::node_cdata);
    QCOMPARE(CategoryNodeText(dolls.first_child()), QStringLiteral("<Dolls> & Bears"));
    QCOMPARE(CategoryNodeText(dolls.next_sibling("SubItem").first_child()), QStringLiteral("Caf\u00e9 Sets"));
}

void tst_modXML::addedEntriesFollowTheFileLayout() {
    QVERIFY(OpenCategoryFile(m_path, QStringLiteral("Categories")));
    const auto saves = CategoryFileSaveCount();
    Hooks().SiteLabel = [] { return UKSiteLabel; };
    AddMainCategory(QStringLiteral("Toys & Games"), QStringLiteral("http://a/?x=1&y=<2>"));
    QCOMPARE(CategoryFileSaveCount(), saves + 1);
    Hooks().SiteLabel = [] { return USSiteLabel; };
    AddMainCategory(QStringLiteral("Coins"), QStringLiteral("http://c/"));
    AddSubCategory(QStringLiteral("Bullion"), QStringLiteral("http://c/bQQsorecordsperpageZ50"));
    QCOMPARE(CategoryFileSaveCount(), saves + 3);

    // The sub-category lands in the second site element; the first keeps MainItem and MainURL only.
    QCOMPARE(ReadBytes(m_path),
             Declaration +
                 "<Categories>"
                 "<ebay.co.uk><MainItem><![CDATA[Toys & Games]]></MainItem>"
                 "<MainURL><![CDATA[http://a/?x=1&y=<2>]]></MainURL></ebay.co.uk>"
                 "<ebay.com><MainItem><![CDATA[Coins]]></MainItem><MainURL><![CDATA[http://c/]]></MainURL>"
                 "<SubItem><![CDATA[Bullion]]><SubURL><![CDATA[http://c/bQQsorecordsperpageZ50]]></SubURL>"
                 "</SubItem></ebay.com></Categories>");

    // After a fresh open there is no site element to add to: nothing is written.
    QVERIFY(OpenCategoryFile(m_path, QStringLiteral("Categories")));
    const QByteArray before = ReadBytes(m_path);
    AddSubCategory(QStringLiteral("Orphan"), QStringLiteral("http://o/"));
    QCOMPARE(ReadBytes(m_path), before);
}

void tst_modXML::removingOneSiteKeepsTheOtherAndSavesAfterEach() {
    WriteBytes(m_path, Golden("two_sites.xml"));
    QVERIFY(OpenCategoryFile(m_path, QStringLiteral("Categories")));
    const QStringList ukBefore = SiteTags().filter(UKSiteLabel);
    QCOMPARE(SiteTags().count(USSiteLabel), 3);

    auto saves = CategoryFileSaveCount();
    RemoveSiteCategories(USSiteLabel);
    QCOMPARE(CategoryFileSaveCount(), saves + 3 + 1);
    QCOMPARE(SiteTags(), ukBefore);
    QCOMPARE(CategoryNodeText(CategoryStore.RootElement.child("ebay.co.uk").child("MainItem")),
             QStringLiteral("Antiques"));

    // The disk holds what memory holds: reading it back gives the same two UK entries in order.
    ReleaseCategoryFile();
    QVERIFY(OpenCategoryFile(m_path, QStringLiteral("Categories")));
    QStringList names;
    for (pugi::xml_node site = CategoryStore.RootElement.child("ebay.co.uk"); site;
         site = site.next_sibling("ebay.co.uk"))
        names << CategoryNodeText(site.child("MainItem"));
    QCOMPARE(names, (QStringList{QStringLiteral("Antiques"), QStringLiteral("Stamps")}));
    QCOMPARE(SiteTags().count(USSiteLabel), 0);

    // A site without entries: nothing removed, one save.
    saves = CategoryFileSaveCount();
    RemoveSiteCategories(USSiteLabel);
    QCOMPARE(CategoryFileSaveCount(), saves + 1);
    QCOMPARE(SiteTags().size(), 2);
}

void tst_modXML::categoryFileCorners() {
    const QString unreadable = m_path + QStringLiteral(".unreadable");
    // Files in other encodings are read by their declaration: what Latin-1 holds stays, a URL keeps
    // the rest percent-encoded. Malformed forms are kept aside and replaced, as a missing file.
    const QByteArray entry =
        "<ebay.com><MainItem>Caf\xc3\xa9</MainItem><MainURL>http://x/\xe2\x82\xac</MainURL></ebay.com>";
    const QByteArray deep = QByteArray("<d>").repeated(300) + QByteArray("</d>").repeated(300);
    const QString utf16 =
        QStringLiteral("\ufeff<Categories>") + QString::fromUtf8(entry) + QStringLiteral("</Categories>");
    const QList<std::pair<QByteArray, bool>> forms{
        {R"(<?xml version="1.0" encoding="UTF-8"?><Categories>)" + entry + "</Categories>", true},
        {R"(<?xml version="1.0" encoding="windows-1252"?><Categories><ebay.com><MainItem>Caf&#233;</MainItem>)"
         "<MainURL>http://x/\x80</MainURL></ebay.com></Categories>",
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
        WriteBytes(m_path, bytes);
        QVERIFY(OpenCategoryFile(m_path, QStringLiteral("Categories")));
        const pugi::xml_node site = CategoryStore.RootElement.child("ebay.com");
        QCOMPARE(CategoryNodeText(site.child("MainItem")), loads ? QStringLiteral("Caf\u00e9") : QString());
        QCOMPARE(CategoryNodeText(site.child("MainURL")),
                 loads ? QStringLiteral("http://x/%E2%82%AC") : QString());
        QCOMPARE(ReadBytes(unreadable), loads ? QByteArray() : bytes);
        QVERIFY(ReadBytes(m_path).startsWith(Declaration));
        QFile::remove(unreadable);
    }

    // A link's escapes reach the file as written; a name loses what Latin-1 cannot hold.
    QVERIFY(OpenCategoryFile(m_path, QStringLiteral("Categories")));
    QVERIFY(AddMainCategory(QStringLiteral("\u20ac Caf\u00e9"),
                            QStringLiteral("http://x/%E2%82%AC/\u20ac\u00e9?q=%20")));
    QVERIFY(ReadBytes(m_path).contains("<![CDATA[? Caf\xe9]]><"));
    QVERIFY(ReadBytes(m_path).contains("<![CDATA[http://x/%E2%82%AC/%E2%82%AC\xe9?q=%20]]>"));

    // A symbolic link stays one and is written through, also when its target is not there yet;
    // temporary files of ours older than a minute go at the next open, and nothing else does.
    QVERIFY(QDir(m_dir.path()).mkdir(QStringLiteral("real")));
    const QString real = m_dir.filePath(QStringLiteral("real/aeurl.xml"));
    QFile::remove(m_path);
    QVERIFY(QFile::link(QStringLiteral("real/aeurl.xml"), m_path));
    const QStringList aside{real + QStringLiteral(".tmp-Ab12Cd"), real + QStringLiteral(".tmp-Fresh1"),
                            real + QStringLiteral(".backup")};
    for (const QString& file : aside)
        WriteBytes(file, "x");
    const struct utimbuf old { time(nullptr) - 120, time(nullptr) - 120 };
    for (const int stale : {0, 2})
        QVERIFY(utime(QFile::encodeName(aside[stale]).constData(), &old) == 0);
    QVERIFY(OpenCategoryFile(m_path, QStringLiteral("Categories")) &&
            AddMainCategory(QStringLiteral("Linked"), QStringLiteral("http://l/")) &&
            AddMainCategory(QStringLiteral("Twice"), QStringLiteral("http://t/")));
    ReleaseCategoryFile();
    QVERIFY(QFileInfo(m_path).isSymLink());
    QVERIFY(ReadBytes(real).contains("Twice"));
    QCOMPARE(QDir(m_dir.filePath(QStringLiteral("real"))).entryList(QDir::Files),
             (QStringList{QStringLiteral("aeurl.xml"), QStringLiteral("aeurl.xml.backup"),
                          QStringLiteral("aeurl.xml.tmp-Fresh1")}));

    // The backup before a refresh, kept over a refresh that did not finish, and put back.
    const QByteArray former = ReadBytes(m_path);
    QString error;
    QVERIFY(KeepCategoryBackup(m_path) && MarkRefreshStarted(m_path, USSiteLabel));
    QCOMPARE(CategoryBackupPath(m_path), real + QStringLiteral(".bak"));
    WriteBytes(real, "partial");
    QVERIFY(KeepCategoryBackup(m_path) && LastRefreshUnfinished(m_path));
    QVERIFY(RestoreCategoryFile(m_path, error));
    QVERIFY(ReadBytes(m_path) == former && QFileInfo(m_path).isSymLink() && !LastRefreshUnfinished(m_path));
    QFile::remove(real + QStringLiteral(".bak"));
    QVERIFY(!RestoreCategoryFile(m_path, error) && error.startsWith(QStringLiteral("No backup to restore")));

    // What the user may not read or write, tried by the command-line tool as an ordinary user
    // (permission bits do not bind the superuser): a file that cannot be read is left alone; a
    // read-only one is listed as it is and only a refresh refuses; a writable file in a folder that
    // takes no new file fails the open's rewrite.
    QFile::remove(m_path);
    const bool root = geteuid() == 0;
    const QStringList nobody{QStringLiteral("--reuid=65534"), QStringLiteral("--regid=65534"),
                             QStringLiteral("--clear-groups")};
    if (root && runProgram(QStringLiteral("setpriv"), nobody + QStringList{QStringLiteral("true")}).exitCode != 0)
        QSKIP("running as root without setpriv's right to become another user: permission bits cannot be "
              "tested");
    const QString program = root ? QStringLiteral("setpriv") : QStringLiteral(MARQUILL_CLI);
    const QStringList cli = root ? nobody + QStringList{QStringLiteral(MARQUILL_CLI)} : QStringList();
    const QStringList data{QStringLiteral("--site"), USSiteLabel, QStringLiteral("--data"), m_dir.path()};
    const QFile::Permissions rwx = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner;
    const QList<std::tuple<QFile::Permissions, QFile::Permissions, int>> modes{
        {{}, rwx, 4},
        {QFile::ReadOwner, rwx, 0},
        {QFile::ReadOwner | QFile::WriteOwner, rwx & ~QFile::WriteOwner, 4}};
    for (const auto& [fileMode, folderMode, treeExit] : modes) {
        WriteBytes(m_path, forms[0].first);
        QVERIFY(!root || (chown(QFile::encodeName(m_path).constData(), 65534, 65534) == 0 &&
                          chown(QFile::encodeName(m_dir.path()).constData(), 65534, 65534) == 0));
        QVERIFY(QFile::setPermissions(m_path, fileMode) && QFile::setPermissions(m_dir.path(), folderMode));
        const Run tree = runProgram(program, cli + QStringList{QStringLiteral("tree")} + data);
        const Run refresh = runProgram(program, cli + QStringList{QStringLiteral("refresh")} + data);
        QFile::setPermissions(m_dir.path(), rwx);
        QFile::setPermissions(m_path, QFile::ReadOwner | QFile::WriteOwner);
        QCOMPARE(tree.exitCode, treeExit);
        QVERIFY(treeExit ? tree.err.contains(QStringLiteral("Cannot open ") + m_path)
                         : tree.lines().join(u'\n').contains(QStringLiteral("Caf\u00e9")));
        QCOMPARE(refresh.exitCode, 4);
        QVERIFY(refresh.err.contains(m_path) &&
                (treeExit || refresh.err.contains(QStringLiteral("write access"))));
        QCOMPARE(ReadBytes(m_path), forms[0].first);
        QVERIFY(!QFile::exists(unreadable) && !QFile::exists(m_path + QStringLiteral(".bak")));
    }
}

void tst_modXML::cdataTerminatorStaysOneSection_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("nameRead");
    QTest::addColumn<QString>("urlRead");
    QTest::newRow("in both") << QStringLiteral("a]]>b")
                             << QStringLiteral("http://x/a]]>bQQsorecordsperpageZ50")
                             << QStringLiteral("a]] >b")
                             << QStringLiteral("http://x/a]]%3EbQQsorecordsperpageZ50");
    QTest::newRow("at the ends") << QStringLiteral("]]>x]]>") << QStringLiteral("]]>")
                                 << QStringLiteral("]] >x]] >") << QStringLiteral("]]%3E");
    QTest::newRow("brackets alone") << QStringLiteral("]]]>") << QStringLiteral("a]]b>")
                                    << QStringLiteral("]]] >") << QStringLiteral("a]]b>");
}

void tst_modXML::cdataTerminatorStaysOneSection() {
    QFETCH(QString, name);
    QFETCH(QString, url);
    QFETCH(QString, nameRead);
    QFETCH(QString, urlRead);
    QVERIFY(OpenCategoryFile(m_path, QStringLiteral("Categories")));
    AddMainCategory(name, url);
    AddSubCategory(name, url);

    ReleaseCategoryFile();
    QVERIFY(OpenCategoryFile(m_path, QStringLiteral("Categories")));
    const pugi::xml_node site = CategoryStore.RootElement.child("ebay.com");
    QCOMPARE(CategoryNodeText(site.child("MainItem")), nameRead);
    QCOMPARE(CategoryNodeText(site.child("MainURL")), urlRead);
    const pugi::xml_node item = site.child("SubItem");
    std::vector<pugi::xml_node> children(item.begin(), item.end());
    QCOMPARE(children.size(), size_t(2));
    QCOMPARE(children[0].type(), pugi::node_cdata);
    QCOMPARE(CategoryNodeText(children[0]), nameRead);
    QCOMPARE(QByteArray(children[1].name()), QByteArray("SubURL"));
    QCOMPARE(CategoryNodeText(children[1]), urlRead);
}

QTEST_GUILESS_MAIN(tst_modXML)
#include "tst_modXML.moc"
