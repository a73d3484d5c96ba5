#include "CategoryTree.h"

QString CategoryNode::FullPath() const {
    QString path = m_text;
    for (const CategoryNode* node = m_parent; node; node = node->m_parent)
        path = node->m_text + (m_tree ? m_tree->PathSeparator() : QString()) + path;
    return path;
}

void CategoryTree::Clear() {
    m_byKey.clear();
    m_root.reset();
}

CategoryNode* CategoryTree::Add(CategoryNode* parent, const QString& key, const QString& text) {
    if (m_byKey.contains(key))
        return nullptr;
    // One root per tree, and only nodes of this tree take children.
    if (parent ? parent->m_tree != this : m_root != nullptr)
        return nullptr;
    auto node = std::make_unique<CategoryNode>();
    node->m_key = key;
    node->m_text = text;
    node->m_parent = parent;
    node->m_tree = this;
    CategoryNode* added = node.get();
    if (parent) {
        if (!parent->m_children.empty())
            parent->m_children.back()->m_next = added;
        parent->m_children.push_back(std::move(node));
    } else {
        m_root = std::move(node);
    }
    m_byKey.insert(key, added);
    return added;
}

const CategoryNode* CategoryTree::FindByPath(const QString& path) const {
    for (const CategoryNode* node : NodesInOrder())
        if (node->FullPath() == path)
            return node;
    return nullptr;
}

std::vector<const CategoryNode*> CategoryTree::NodesInOrder() const {
    std::vector<const CategoryNode*> nodes;
    nodes.reserve(size_t(m_byKey.size()));
    std::vector<const CategoryNode*> pending;
    if (m_root)
        pending.push_back(m_root.get());
    while (!pending.empty()) {
        const CategoryNode* node = pending.back();
        pending.pop_back();
        nodes.push_back(node);
        for (auto child = node->m_children.rbegin(); child != node->m_children.rend(); ++child)
            pending.push_back(child->get());
    }
    return nodes;
}
