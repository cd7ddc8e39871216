#pragma once

#include <string>
#include <vector>

#include "inventory/KvCInventoryItem.h"

/** The address text of a node while a walk goes down and up: each step costs the length of that step alone. */
class PathText
{
public:
    void down(const KvCInventoryItem& item)
    {
        m_ends.push_back(m_text.size());
        if (!m_text.empty())
            m_text += '/';
        m_text += item.getID().toString().c_str();
    }
    void up()
    {
        m_text.resize(m_ends.back());
        m_ends.pop_back();
    }
    const std::string& text() const { return m_text; }
    /** The address of a parameter of the item reached. */
    std::string of(const KvCInventoryParameter& parameter) const
    {
        std::string text = m_text;
        if (!text.empty())
            text += '/';
        return text + parameter.getID().toString().c_str();
    }

private:
    std::string m_text;
    std::vector<std::size_t> m_ends;
};

/** Calls `visit(const KvCInventoryItem&, const PathText&)` for each item of the tree, parents before children, until it
    returns false. */
template <class Visit>
bool walkTree(const KvCInventoryItem& root, Visit&& visit)
{
    PathText path;
    const KvCInventoryItem* item = &root;
    path.down(*item);
    while (visit(*item, path)) {
        if (item->getFirstSubItem() != nullptr) {
            item = item->getFirstSubItem();
            path.down(*item);
            continue;
        }
        while (item != &root && item->getNext() == nullptr) {
            item = item->getParent();
            path.up();
        }
        if (item == &root)
            return true;
        path.up();
        item = item->getNext();
        path.down(*item);
    }
    return false;
}
