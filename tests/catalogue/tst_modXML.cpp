#include "catalogue/modXML.h"
#include "harvest/modMain.h"
#include "platform/HostHooks.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <csignal>
#include <sys/resource.h>
#include <unistd.h>

namespace {

QByteArray ReadBytes(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void WriteBytes(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(bytes), bytes.size());
}

QByteArray Golden(const char* name) {
    return ReadBytes(QStringLiteral(MARQUILL_TEST_DATA "/catalogue/") + QLatin1String(name));
}

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
    void malformedFileIsKeptAsideNeverOverwritingACopy();
    void folderInTheFilesPlaceIsNotOpened();
    void failedSaveLeavesTheFormerFile();
    void charactersBeyondLatin1BecomeQuestionMarks();
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

void tst_modXML::malformedFileIsKeptAsideNeverOverwritingACopy() {
    const QByteArray first = Golden("malformed.xml");
    QVERIFY(!first.isEmpty());
    WriteBytes(m_path, first);
    QVERIFY(OpenCategoryFile(m_path, QStringLiteral("Categories")));
    QCOMPARE(ReadBytes(m_path), Golden("empty.ref"));
    QCOMPARE(ReadBytes(m_path + QStringLiteral(".unreadable")), first);

    // Two root elements do not make a category file either.
    const QByteArray second = QByteArrayLiteral("<Categories/><Categories/>");
    WriteBytes(m_path, second);
    QVERIFY(OpenCategoryFile(m_path, QStringLiteral("Categories")));
    QCOMPARE(ReadBytes(m_path + QStringLiteral(".unreadable")), first);
    QCOMPARE(ReadBytes(m_path + QStringLiteral(".unreadable.1")), second);
    QCOMPARE(ReadBytes(m_path), Golden("empty.ref"));

    // A well-formed file is never moved aside.
    QVERIFY(OpenCategoryFile(m_path, QStringLiteral("Categories")));
    QVERIFY(!QFile::exists(m_path + QStringLiteral(".unreadable.2")));
}

void tst_modXML::folderInTheFilesPlaceIsNotOpened() {
    QVERIFY(QDir().mkpath(m_path + QStringLiteral("/inside")));
    QVERIFY(!OpenCategoryFile(m_path, QStringLiteral("Categories")));
    QVERIFY(QFileInfo(m_path + QStringLiteral("/inside")).isDir());
    QVERIFY(!QFile::exists(m_path + QStringLiteral(".unreadable")));
    QVERIFY(!OpenCategoryFile(m_dir.filePath(QStringLiteral("no/such/folder/aeurl.xml")),
                              QStringLiteral("Categories")));
}

void tst_modXML::failedSaveLeavesTheFormerFile() {
    QVERIFY(OpenCategoryFile(m_path, QStringLiteral("Categories")));
    AddMainCategory(QStringLiteral("Coins"), QStringLiteral("http://c/"));
    const QByteArray saved = ReadBytes(m_path);
    const auto saves = CategoryFileSaveCount();

    // A full disk: the process may write no more than a few bytes to any file.
    struct rlimit former {};
    QCOMPARE(getrlimit(RLIMIT_FSIZE, &former), 0);
    const auto formerHandler = std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit tight = former;
    tight.rlim_cur = 64;
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &tight), 0);
    AddSubCategory(QStringLiteral("Bullion"), QStringLiteral("http://c/bQQsorecordsperpageZ50"));
    const bool reopened = OpenCategoryFile(m_path, QStringLiteral("Categories"));
    setrlimit(RLIMIT_FSIZE, &former);
    std::signal(SIGXFSZ, formerHandler);

    QVERIFY(!reopened);
    QCOMPARE(CategoryFileSaveCount(), saves);
    QCOMPARE(ReadBytes(m_path), saved);
    QCOMPARE(QDir(m_dir.path()).entryList(QDir::Files | QDir::Hidden),
             QStringList{QStringLiteral("aeurl.xml")});

    // A folder that refuses writing, where the permission bits bind (not for the superuser).
    if (geteuid() != 0) {
        ReleaseCategoryFile();
        QVERIFY(OpenCategoryFile(m_path, QStringLiteral("Categories")));
        QVERIFY(QFile::setPermissions(m_dir.path(), QFile::ReadOwner | QFile::ExeOwner));
        AddMainCategory(QStringLiteral("Stamps"), QStringLiteral("http://s/"));
        const bool reopenedReadOnly = OpenCategoryFile(m_path, QStringLiteral("Categories"));
        QFile::setPermissions(m_dir.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QVERIFY(!reopenedReadOnly);
        QCOMPARE(ReadBytes(m_path), saved);
    }
}

void tst_modXML::charactersBeyondLatin1BecomeQuestionMarks() {
    QVERIFY(OpenCategoryFile(m_path, QStringLiteral("Categories")));
    AddMainCategory(QStringLiteral("Caf\u00e9 \u2603 \U0001F600"), QStringLiteral("http://x/\u0142"));
    QVERIFY(ReadBytes(m_path).contains("<![CDATA[Caf\xe9 ? ?]]>"));
    QVERIFY(ReadBytes(m_path).contains("<![CDATA[http://x/?]]>"));

    ReleaseCategoryFile();
    QVERIFY(OpenCategoryFile(m_path, QStringLiteral("Categories")));
    const pugi::xml_node site = CategoryStore.RootElement.child("ebay.com");
    QCOMPARE(CategoryNodeText(site.child("MainItem")), QStringLiteral("Caf\u00e9 ? ?"));
    QCOMPARE(CategoryNodeText(site.child("MainURL")), QStringLiteral("http://x/?"));
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
