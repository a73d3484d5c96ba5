// The category file loader on any file: open (which rewrites it), fill both sites' trees, add a
// main and a sub-category (each saved), and open again. A file the program has written once reads
// back as the same trees every time after.
#include "CategoryCatalogue.h"
#include "FuzzTarget.h"
#include "modXML.h"

#include <QDir>

static QStringList BothTrees() {
    QStringList nodes;
    for (const QString& site : {USSiteLabel, UKSiteLabel}) {
        Hooks().SiteLabel = [site] { return site; };
        ReloadCategoryTree();
        for (const CategoryNode* node : CurrentCategoryTree()->NodesInOrder())
            nodes << node->FullPath() + u'\t' + node->Key();
    }
    return nodes;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
    const QString folder = FuzzSetUp();
    QFile file(folder + QStringLiteral("/aeurl.xml"));
    FUZZ_CHECK(file.open(QIODevice::WriteOnly) && file.write(FuzzBytes(data, size)) == qsizetype(size));
    file.close();
    LoadCategories();
    BothTrees();
    AddMainCategory(QStringLiteral("Coins ]]> &amp; \u00e9"),
                    QStringLiteral("http://listings.ebay.com/c?a=1&b]]>"));
    AddSubCategory(QStringLiteral("World"), QStringLiteral("http://listings.ebay.com/w"));
    ReleaseCategoryFile();
    LoadCategories();
    const QStringList written = BothTrees();
    ReleaseCategoryFile();
    LoadCategories();
    FUZZ_CHECK(BothTrees() == written);
    ReleaseCategoryFile();
    // The unreadable files set aside would pile up.
    for (const QString& name : QDir(folder).entryList(QDir::Files | QDir::Hidden))
        QFile::remove(folder + u'/' + name);
    return 0;
}
