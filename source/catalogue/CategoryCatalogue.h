#pragma once

#include "catalogue/CategoryTree.h"
#include "harvest/modMain.h"

#include <QString>
#include <cstdint>
#include <memory>

// The window-free half of treCategories, cboSite and cboMaxAuctions: frmMain only wires its
// controls to these calls and shows CurrentCategoryTree() after each CategoryTreeRefilled hook.

// The category file's name beside the program, and the root element's name.
inline const QString CategoryFileName = QStringLiteral("aeurl.xml");
inline const QString CategoryRootName = QStringLiteral("Categories");

// The root node of every fill.
inline const QString RootNodeKey = QStringLiteral("Root");
inline const QString RootNodeText = QStringLiteral("Select Category");
inline const QString CategoryPathSeparator = QStringLiteral("~");
// The one catalogue entry whose click saves the auction choice.
inline const QString AllCategoriesText = QStringLiteral("All Categories");
// cboMaxAuctions' ListIndex of "2,000", the default after a load.
constexpr int DefaultAuctionsIndex = 2;

// The state of the main window's catalogue logic, one instance for the process.
struct CatalogueState {
    // True from before cboSite is filled until LoadCategories has returned in Form_Load.
    Flag FormLoading = FlagFalse;
    // The ListIndex of cboMaxAuctions remembered by a click on the tree. Never reset by a fill.
    std::int16_t SavedAuctionsIndex = 0;
    // Whether the root of the tree shown is expanded; every fill expands it.
    bool RootExpanded = false;
};

extern CatalogueState CatalogueLogic;

// The tree that treCategories shows; null before the first fill. Each fill makes a new tree and
// replaces this pointer, so a run that still holds the former tree keeps valid nodes.
std::shared_ptr<CategoryTree> CurrentCategoryTree();
// Drops the tree (tests, and a host that starts over); the next fill makes a new one.
void ResetCategoryTree();

// Opens the category file (CategoryFilePath()), fills the tree and sets cboMaxAuctions to "2,000".
// On failure: the message "Cannot open " + path, the document released, the tree not touched.
void LoadCategories();

// Rebuilds the tree from the open category document for Hooks().SiteLabel(); with no document
// open, a tree with the root alone. Calls Hooks().CategoryTreeRefilled() when done.
void ReloadCategoryTree();

// The click on cboSite: nothing while FormLoading; otherwise rereads the file from disk and
// refills the tree, and releases the document in both cases.
void ClickSite();

// The click on treCategories with its selected node (null: no node selected, nothing changes).
void ClickTree(const CategoryNode* selected);
