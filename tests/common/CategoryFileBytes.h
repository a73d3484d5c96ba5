#pragma once

#include "catalogue/CategoryCatalogue.h"
#include "catalogue/CategoryTree.h"
#include "catalogue/modXML.h"
#include "harvest/modMain.h"
#include "platform/HostHooks.h"

#include <QFile>
#include <QStringList>
#include <QTemporaryDir>
#include <QTest>
#include <memory>

// Helpers of the catalogue's tests: tree lines, category file bytes, stored golden files, a host.

// Each node as its FullPath, a tab and its key, in tree order: the form the sample site prints.
inline QStringList TreeLines(const std::shared_ptr<CategoryTree>& tree) {
    QStringList lines;
    if (tree)
        for (const CategoryNode* node : tree->NodesInOrder())
            lines << node->FullPath() + u'\t' + node->Key();
    return lines;
}

inline QByteArray ReadBytes(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

inline void WriteBytes(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(bytes), bytes.size());
}

inline QByteArray Golden(const char* name) {
    return ReadBytes(QStringLiteral(MARQUILL_TEST_DATA "/catalogue/") + QLatin1String(name));
}

// A site element and a SubItem as the file writes them.
inline QByteArray Site(const QByteArray& tag, const QByteArray& name, const QByteArray& url,
                       const QByteArray& subs = {}) {
    return "<" + tag + "><MainItem><![CDATA[" + name + "]]></MainItem><MainURL><![CDATA[" + url +
           "]]></MainURL>" + subs + "</" + tag + ">";
}

inline QByteArray Sub(const QByteArray& name, const QByteArray& url) {
    return "<SubItem><![CDATA[" + name + "]]><SubURL><![CDATA[" + url + "]]></SubURL></SubItem>";
}

// Each site element of the file on disk as "tag:MainItem", in file order.
inline QStringList SiteEntries(const QString& path) {
    QStringList entries;
    pugi::xml_document document;
    const QByteArray bytes = ReadBytes(path);
    if (document.load_buffer(bytes.constData(), size_t(bytes.size())))
        for (pugi::xml_node site = document.document_element().first_child(); site;
             site = site.next_sibling())
            if (site.type() == pugi::node_element)
                entries << QString::fromUtf8(site.name()) + u':' + CategoryNodeText(site.child("MainItem"));
    return entries;
}

// The main window as the catalogue sees it, in a folder of its own: every hook records what it
// is told. Made afresh for each test function, it leaves the process's state as it found it.
struct CatalogueHost {
    CatalogueHost() {
        ReleaseCategoryFile();
        ResetCategoryTree();
        CatalogueLogic = CatalogueState();
        HarvestState.StopRequested = FlagFalse;
        SetProgramFolder(dir.path());
        CategoryStore.CategoryFilePath = path;
        ResetHooks();
        Hooks().SiteLabel = [this] { return site; };
        Hooks().SetMainTotalCaption = [this](const QString& caption) { captions << caption; };
        Hooks().SetStopCaption = [this](const QString& caption) { stopCaption = caption; };
        Hooks().SetMousePointer = [this](int shape) { pointer = shape; };
        Hooks().ShowRefreshFeedback = [this] { feedback = true; };
        Hooks().HideFeedback = [this] { feedback = false, ++hides; };
        Hooks().GettingKeywordsVisible = [this] { return feedback; };
        Hooks().MaxAuctionsIndex = [this] { return auctions; };
        Hooks().SetMaxAuctionsIndex = [this](int index) { auctions = index; };
        Hooks().CategoryTreeRefilled = [this] { ++refills; };
        Hooks().MsgBox = [this](const QString& text, int style, const QString&) {
            messages << text + u'|' + QString::number(style);
            return 1;
        };
    }
    ~CatalogueHost() {
        ReleaseCategoryFile();
        ResetCategoryTree();
        CategoryStore.CategoryFilePath.clear();
        HarvestState.StopRequested = FlagFalse;
        SetProgramFolder(QString());
        ResetHooks();
    }

    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("aeurl.xml"));
    QString site = USSiteLabel;
    QStringList messages, captions;
    QString stopCaption;
    int auctions = 0, refills = 0, hides = 0, pointer = -1;
    bool feedback = false;
};
