#pragma once

#include <QHash>
#include <QString>
#include <memory>
#include <vector>

// One node of the category tree: the root, a main category or a sub-category.
class CategoryNode final {
public:
    const QString& Key() const { return m_key; }
    const QString& Text() const { return m_text; }
    // First child, or nullptr.
    const CategoryNode* Child() const { return m_children.empty() ? nullptr : m_children.front().get(); }
    // Next sibling, or nullptr.
    const CategoryNode* Next() const { return m_next; }
    const CategoryNode* Parent() const { return m_parent; }
    int Children() const { return int(m_children.size()); }
    // The texts from the root down to this node, joined by the tree's path separator.
    QString FullPath() const;

private:
    friend class CategoryTree;
    QString m_key;
    QString m_text;
    CategoryNode* m_parent = nullptr;
    CategoryNode* m_next = nullptr;
    const class CategoryTree* m_tree = nullptr;
    std::vector<std::unique_ptr<CategoryNode>> m_children;
};

// The catalogue of one site as a tree of three levels. Keys are unique: adding a repeated key
// is refused, as the platform's tree control refuses it.
class CategoryTree final {
public:
    CategoryTree() = default;
    CategoryTree(const CategoryTree&) = delete;
    CategoryTree& operator=(const CategoryTree&) = delete;

    void Clear();
    void SetPathSeparator(const QString& separator) { m_separator = separator; }
    const QString& PathSeparator() const { return m_separator; }

    // Adds the root (parent null) or a last child of parent. Returns the new node, or nullptr
    // when the key is already in the tree (nothing is added then).
    CategoryNode* Add(CategoryNode* parent, const QString& key, const QString& text);

    CategoryNode* Root() const { return m_root.get(); }
    const CategoryNode* FindByKey(const QString& key) const { return m_byKey.value(key, nullptr); }
    // The node whose FullPath equals path, or nullptr.
    const CategoryNode* FindByPath(const QString& path) const;
    // Every node in tree order: the root, then each main category followed by its children.
    std::vector<const CategoryNode*> NodesInOrder() const;

private:
    std::unique_ptr<CategoryNode> m_root;
    QHash<QString, CategoryNode*> m_byKey;
    QString m_separator = QStringLiteral("\\");
};
