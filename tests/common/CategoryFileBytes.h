#pragma once

#include "CategoryTree.h"

#include <QFile>
#include <QStringList>
#include <QTest>
#include <memory>

// Helpers of the catalogue's tests: tree lines, category file bytes, stored golden files.

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
