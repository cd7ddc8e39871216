#include "composite/KvCComposite.h"

#include <cstdio>
#include <cstring>

#include "base/Report.h"
#include "composite/CompositeLinks.h"
#include "composite/CompositeWalk.h"
#include "composite/FreshTree.h"

using Access = KvNCompositeAccess;

KvCComposite::KvCComposite(KvCErrorListPool& errors, KvUInt32 classId, KvUInt32 unitId, const char* descr)
    : m_classId(classId), m_unitId(unitId), m_list(this)
{
    if (descr == nullptr)
        return;
    m_hasList = true;
    const std::size_t size = std::strlen(descr) + 1;
    auto* const copy = static_cast<char*>(KvNAllocation::allocate(size));
    if (copy == nullptr) {
        KV_REPORT(errors, OutOfMemory, "KvCComposite::KvCComposite");
        return;
    }
    std::memcpy(copy, descr, size);
    m_descr = copy;
    m_descrSize = size & 0xFF;
}

KvCComposite::KvCComposite(KvCErrorListPool& errors, KvUInt32 classId, KvUInt32 unitId, KvSharedText descr)
    : KvCComposite(errors, classId, unitId, descr.isShared ? nullptr : descr.text)
{
    if (!descr.isShared)
        return;
    m_descr = descr.text;
    m_descrSize = descr.text == nullptr ? 0 : (std::strlen(descr.text) + 1) & 0xFF;
    m_descrIsShared = true;
    m_hasList = descr.text != nullptr;
}

KvCComposite::~KvCComposite()
{
    // Kept: the friend's own friend link is cleared, wherever it leads.
    if (KvCComposite* const other = getFriend())
        other->setFriend(nullptr);
    Access::forget(this);
    Access::destroyChildren(this);
    {
        ObjectSlabs::Releases releases;
        KvNFreshTree::clear(m_list, releases);
    }
    if (!m_descrIsShared && !m_descrIsBehind)
        KvNAllocation::release(const_cast<char*>(m_descr));
    if (m_extra != nullptr)
        Access::forget(this);
    delete m_extra;
}

void KvCComposite::update(KvCErrorListPool&) {}
void KvCComposite::PreInit(KvCErrorListPool&) {}
void KvCComposite::PostInit(KvCErrorListPool&) {}
void KvCComposite::PreApply(KvCErrorListPool&) {}
void KvCComposite::PostApply(KvCErrorListPool&) {}
void KvCComposite::PreReset(KvCErrorListPool&) {}
void KvCComposite::PostReset(KvCErrorListPool&) {}
bool KvCComposite::markForSerialization(KvCErrorListPool&, KvCComposite*)
{
    return false;
}
void KvCComposite::traverseHook(KvCErrorListPool&, KvUInt32) {}
void KvCComposite::virtualDummyFunction3() {}
void KvCComposite::virtualDummyFunction2() {}
void KvCComposite::virtualDummyFunction1() {}

KvCComposite* KvCComposite::getChild(KvUInt32 unitId) const
{
    return Access::findUnit(this, unitId);
}

void KvCComposite::setSibling(KvCComposite* sibling)
{
    if (!Access::changeSibling(this, sibling))
        KV_REPORT(KvNReport::masterList(), OutOfMemory, "KvCComposite::setSibling");
}

KvCComposite* KvCComposite::getFriend() const
{
    return m_extra == nullptr ? nullptr : m_extra->friendLink.target;
}

void KvCComposite::setFriend(KvCComposite* other)
{
    if (!Access::point(this, other, &Extra::friendLink, &Extra::friendOf))
        KV_REPORT(KvNReport::masterList(), OutOfMemory, "KvCComposite::setFriend");
}

void* KvCComposite::getRtDataPointer() const
{
    return m_extra == nullptr ? nullptr : m_extra->rtData;
}

void KvCComposite::setRtDataPointer(void* data)
{
    if (data == getRtDataPointer())
        return;
    if (Extra* const extra = Access::extra(this))
        extra->rtData = data;
    else
        KV_REPORT(KvNReport::masterList(), OutOfMemory, "KvCComposite::setRtDataPointer");
}

long KvCComposite::attach(KvCComposite* child)
{
    if (child == nullptr)
        return AttachNull;
    const auto nextOf = [](const KvCComposite* node) {
        const bool isFree = node->m_parent == nullptr && Access::holder(node) == nullptr;
        return isFree ? node->m_sibling : nullptr;
    };
    KvCComposite* next = nextOf(child);
    const long result = Access::attachOne(this, child);
    while (next != nullptr) {
        KvCComposite* const sibling = next;
        next = nextOf(sibling);
        Access::attachOne(this, sibling);
    }
    return result;
}

long KvCComposite::attachDetached(KvCComposite* child)
{
    KvCComposite* const existing = Access::findChild(this, child->m_classId, child->m_unitId);
    if (existing == nullptr) {
        Access::append(this, child);
        return 0;
    }
    Access::mergeChildren(existing, child);
    delete child;
    return AttachMerged;
}

void KvCComposite::detachChild(const KvCComposite* child)
{
    if (child != nullptr && Access::holder(child) == this)
        Access::setFree(const_cast<KvCComposite*>(child));
}

void KvCComposite::replaceChild(KvCErrorListPool& errors, KvCComposite* newChild, const KvCComposite* oldChild)
{
    const bool isChild = oldChild != nullptr && Access::holder(oldChild) == this;
    const bool closesRing = newChild == nullptr || (newChild != oldChild && Access::closesRing(newChild, this));
    if (!isChild || closesRing) {
        KV_REPORT(errors, CompositeNotFound, "KvCComposite::replaceChild",
                  oldChild == nullptr ? 0 : oldChild->m_classId, oldChild == nullptr ? 0 : oldChild->m_unitId);
    } else if (newChild != oldChild && !Access::replace(this, newChild, const_cast<KvCComposite*>(oldChild))) {
        KV_REPORT(errors, OutOfMemory, "KvCComposite::replaceChild");
    }
}

void KvCComposite::setIds(KvUInt32 classId, KvUInt32 unitId)
{
    if (classId == m_classId && unitId == m_unitId)
        return;
    // Where the node stands among nodes with its new ids is not known: the indexes are made anew when they are needed.
    if (KvCComposite* const holder = Access::holder(this))
        Access::loseOrder(holder);
    m_classId = classId;
    m_unitId = unitId;
}

KvCComposite* KvCComposite::searchComposite(KvUInt32 classId, KvUInt32 unitId) const
{
    return Access::findChild(this, classId, unitId);
}

KvCComposite* KvCComposite::searchComposite(KvCErrorListPool& errors, KvUInt32 classId, KvUInt32 unitId)
{
    KvCComposite* const found = searchComposite(classId, unitId);
    if (found == nullptr)
        KV_REPORT(errors, CompositeNotFound, "KvCComposite::searchComposite", classId, unitId);
    return found;
}

KvCComposite* KvCComposite::searchCompositeNested(KvUInt32 classId, KvUInt32 unitId)
{
    KvCComposite* node = this;
    while (node != nullptr && (node->m_classId != classId || node->m_unitId != unitId))
        node = KvNCompositeWalk::nextInPreOrder(node, this);
    return node;
}

KvCComposite* KvCComposite::searchCompositeNested(KvCErrorListPool& errors, KvUInt32 classId, KvUInt32 unitId)
{
    KvCComposite* const found = searchCompositeNested(classId, unitId);
    if (found == nullptr)
        KV_REPORT(errors, CompositeNotFound, "KvCComposite::searchCompositeNested", classId, unitId);
    return found;
}

namespace {

/** Calls `change` on the node and, by the direction, on its ancestors or its descendants. */
template <class Change>
void changeNested(KvCComposite* start, KvUInt32 direction, Change&& change)
{
    constexpr KvUInt32 upwards = 1;
    constexpr KvUInt32 downwards = 2;
    for (KvCComposite* node = start; node != nullptr;) {
        change(node);
        if (direction == upwards)
            node = node->getParent();
        else
            node = direction == downwards ? KvNCompositeWalk::nextInPreOrder(node, start) : nullptr;
    }
}

}  // namespace

void KvCComposite::setStateBitNested(KvUInt32 mask, KvUInt32 direction)
{
    changeNested(this, direction, [mask](KvCComposite* node) { node->setStateBit(mask); });
}

void KvCComposite::clearStateBitNested(KvUInt32 mask, KvUInt32 direction)
{
    changeNested(this, direction, [mask](KvCComposite* node) { node->clearStateBit(mask); });
}

KvCString KvCComposite::getElementPath() const
{
    constexpr std::size_t longestNumber = sizeof "[-2147483648]";
    const auto nameOf = [](const KvCComposite* node) { return node->m_descr == nullptr ? "<unknown>" : node->m_descr; };
    std::size_t room = 1;
    for (const KvCComposite* node = this; node != nullptr; node = node->m_parent)
        room += 2 + std::strlen(nameOf(node)) + longestNumber;
    auto* const area = static_cast<char*>(KvNAllocation::allocate(room));
    if (area == nullptr) {
        KV_REPORT(KvNReport::masterList(), OutOfMemory, "KvCComposite::getElementPath");
        return KvCString();
    }
    char* start = area + room;
    const auto putInFront = [&start](const char* text) {
        const std::size_t length = std::strlen(text);
        start -= length;
        std::memcpy(start, text, length);
    };
    *--start = '\0';
    for (const KvCComposite* node = this; node != nullptr; node = node->m_parent) {
        char number[longestNumber] = "";
        if (node->m_unitId != 0)
            std::snprintf(number, sizeof number, "[%i]", static_cast<int>(node->m_unitId));
        putInFront(number);
        putInFront(nameOf(node));
        putInFront("::");
    }
    KvCString path(start);
    KvNAllocation::release(area);
    return path;
}
