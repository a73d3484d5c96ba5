#pragma once

#include "CategoryTree.h"

#include <QStringList>
#include <memory>

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
