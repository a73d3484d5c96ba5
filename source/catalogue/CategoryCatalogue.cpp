#include "CategoryCatalogue.h"

#include "catalogue/modXML.h"
#include "platform/DataPaths.h"
#include "platform/HostHooks.h"

#include <QByteArray>
#include <cstring>
#include <vector>

CatalogueState CatalogueLogic;

namespace {

std::shared_ptr<CategoryTree>& shownTree() {
    static std::shared_ptr<CategoryTree> tree;
    return tree;
}

// The position of a child in a site element is a 16-bit number: children beyond the first
// 32,767 are not read.
constexpr std::int16_t MaxChildPosition = 32767;

void ShowOpenFailure(const QString& path) {
    Hooks().MsgBox(QStringLiteral("Cannot open ") + path, 0, QString());
}

// Every element with that tag in the whole document, in document order.
std::vector<pugi::xml_node> ElementsByTagName(const pugi::xml_document& document, const char* tag) {
    std::vector<pugi::xml_node> found;
    for (pugi::xml_node node = NextInDocumentOrder(document, document); node;
         node = NextInDocumentOrder(node, document))
        if (node.type() == pugi::node_element && std::strcmp(node.name(), tag) == 0)
            found.push_back(node);
    return found;
}

void FillTree(CategoryTree& tree, const pugi::xml_document& document, const QString& siteLabel) {
    const QByteArray tag = siteLabel.toUtf8();
    const std::vector<pugi::xml_node> sites =
        tag.isEmpty() ? std::vector<pugi::xml_node>() : ElementsByTagName(document, tag.constData());

    CategoryNode* root = tree.Root();
    // Both carry over from one site element to the next, as the file's reader always has.
    QString mainName;
    CategoryNode* mainNode = nullptr;
    for (const pugi::xml_node& site : sites) {
        std::int16_t position = 0;
        for (pugi::xml_node child = site.first_child(); child && position < MaxChildPosition;
             child = child.next_sibling(), ++position) {
            if (child.type() != pugi::node_element)
                continue;
            const char* name = child.name();
            if (std::strcmp(name, "MainItem") == 0) {
                mainName = CategoryNodeText(child);
            } else if (std::strcmp(name, "MainURL") == 0) {
                const QString url = CategoryNodeText(child);
                if (CategoryNode* added = tree.Add(root, url, mainName)) {
                    mainNode = added;
                } else {
                    // A repeated main URL is the same category met again: its sub-categories go
                    // under the node already there, where repeats among them are passed over too.
                    // A URL that is already a sub-category's key leaves no main node to hang under.
                    const CategoryNode* earlier = tree.FindByKey(url);
                    mainNode =
                        earlier && earlier->Parent() == root ? const_cast<CategoryNode*>(earlier) : nullptr;
                }
            } else if (std::strcmp(name, "SubItem") == 0) {
                // The name is child 0 and the URL child 1, by position; an item short of either,
                // or one met before any main category, makes no node.
                const pugi::xml_node subName = child.first_child();
                const pugi::xml_node subUrl = subName.next_sibling();
                if (!mainNode || !subName || !subUrl)
                    continue;
                tree.Add(mainNode, CategoryNodeText(subUrl), CategoryNodeText(subName));
            }
        }
    }
}

} // namespace

std::shared_ptr<CategoryTree> CurrentCategoryTree() {
    return shownTree();
}

void ResetCategoryTree() {
    shownTree().reset();
    CatalogueLogic.RootExpanded = false;
}

void LoadCategories() {
    const QString path = CategoryFilePath();
    CategoryStore.CategoryFilePath = path;
    if (!OpenCategoryFile(path, CategoryRootName)) {
        ShowOpenFailure(path);
        ReleaseCategoryFile();
        return;
    }
    Hooks().HideFeedback();
    ReloadCategoryTree();
    Hooks().SetMaxAuctionsIndex(DefaultAuctionsIndex);
}

void ReloadCategoryTree() {
    // A new tree each time: a run that still holds the former one keeps reading valid nodes.
    auto tree = std::make_shared<CategoryTree>();
    tree->SetPathSeparator(CategoryPathSeparator);
    tree->Add(nullptr, RootNodeKey, RootNodeText);
    if (CategoryStore.XmlDocument)
        FillTree(*tree, *CategoryStore.XmlDocument, Hooks().SiteLabel());
    shownTree() = std::move(tree);
    CatalogueLogic.RootExpanded = true;
    Hooks().CategoryTreeRefilled();
}

void ClickSite() {
    // Form_Load sets cboSite's index before the file's path is known.
    if (CatalogueLogic.FormLoading == FlagTrue)
        return;
    if (OpenCategoryFile(CategoryStore.CategoryFilePath, CategoryRootName))
        ReloadCategoryTree();
    else
        ShowOpenFailure(CategoryStore.CategoryFilePath);
    ReleaseCategoryFile();
}

void ClickTree(const CategoryNode* selected) {
    if (!selected)
        return;
    if (selected->Text() == AllCategoriesText) {
        CatalogueLogic.SavedAuctionsIndex = std::int16_t(Hooks().MaxAuctionsIndex());
        Hooks().SetMaxAuctionsIndex(DefaultAuctionsIndex);
    } else {
        Hooks().SetMaxAuctionsIndex(CatalogueLogic.SavedAuctionsIndex);
    }
}
