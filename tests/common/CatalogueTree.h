#pragma once

#include "CategoryTree.h"

#include <QFile>
#include <QStringList>
#include <QTest>
#include <memory>

// Helpers of the catalogue's tests: trees, category file bytes, stored golden files.

// A category tree built in code from the sample site's catalogue lines ("FullPath<TAB>Key").
inline std::shared_ptr<CategoryTree> TreeFromCatalogue(const QStringList& lines) {
    auto tree = std::make_shared<CategoryTree>();
    tree->SetPathSeparator(QStringLiteral("~"));
    CategoryNode* main = nullptr;
    for (const QString& line : lines) {
        const QStringList fields = line.split(u'\t');
        if (fields.size() != 2)
            continue;
        const QStringList levels = fields[0].split(u'~');
        if (levels.size() == 1)
            tree->Add(nullptr, fields[1], levels[0]);
        else if (levels.size() == 2)
            main = tree->Add(tree->Root(), fields[1], levels[1]);
        else if (main)
            tree->Add(main, fields[1], levels[2]);
    }
    return tree;
}

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
