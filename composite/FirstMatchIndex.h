#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/KvTypes.h"
#include "platform/errorhandling/KvCErrorList.h"

/**
 * Finds the first node with a key in a chain of nodes, in constant time on average. An accelerator of a linear search:
 * it never changes an answer. Whoever changes the chain tells it, and drops it when it says that it cannot follow.
 * `KeyOf::of(node)` gives a node's key (KvUInt64). Open addressing; one pointer a slot.
 */
template <class Node, class KeyOf>
class FirstMatchIndex : public KvNAllocation::Object
{
public:
    FirstMatchIndex() = default;
    FirstMatchIndex(const FirstMatchIndex&) = delete;
    FirstMatchIndex& operator=(const FirstMatchIndex&) = delete;
    ~FirstMatchIndex() { KvNAllocation::release(m_slots); }

    /** The first node with this key; null when there is none. */
    Node* find(KvUInt64 key) const { return m_slots == nullptr ? nullptr : m_slots[slotOf(key)]; }

    /** A node came behind all others. False: no memory, drop the index. */
    bool append(Node* node)
    {
        if (!makeRoom())
            return false;
        Node*& slot = m_slots[slotOf(KeyOf::of(node))];
        if (slot != nullptr) {
            m_hasDuplicates = true;
            return true;
        }
        slot = node;
        ++m_used;
        return true;
    }

    /** A node came before all others. False: no memory, drop the index. */
    bool prepend(Node* node)
    {
        if (!makeRoom())
            return false;
        Node*& slot = m_slots[slotOf(KeyOf::of(node))];
        if (slot != nullptr)
            m_hasDuplicates = true;
        else
            ++m_used;
        slot = node;
        return true;
    }

    /** A node left; its key is still the one it had. False: the next match is unknown, drop the index. */
    bool remove(Node* node)
    {
        if (m_slots == nullptr)
            return true;
        const std::size_t place = slotOf(KeyOf::of(node));
        if (m_slots[place] != node)
            return m_hasDuplicates;
        if (m_hasDuplicates)
            return false;
        closeGap(place);
        --m_used;
        return true;
    }

private:
    static constexpr std::size_t smallest = 32;

    /** Spreads the keys; the table's address is a secret of the run, so that no stream can be made to collide. */
    std::size_t startOf(KvUInt64 key) const
    {
        std::uint64_t hash = static_cast<std::uint64_t>(key) + m_seed;
        hash = (hash ^ (hash >> 33)) * 0xFF51AFD7ED558CCDULL;
        hash = (hash ^ (hash >> 33)) * (m_seed | 1);
        return static_cast<std::size_t>(hash >> 20) & m_mask;
    }
    /** The slot that holds the key, or the free one where it belongs. */
    std::size_t slotOf(KvUInt64 key) const
    {
        std::size_t place = startOf(key);
        while (m_slots[place] != nullptr && KeyOf::of(m_slots[place]) != key)
            place = (place + 1) & m_mask;
        return place;
    }

    /** At most half of the slots are ever used, so that searches stay short. */
    bool makeRoom()
    {
        const std::size_t slots = m_slots == nullptr ? 0 : m_mask + 1;
        if (2 * (m_used + 1) <= slots)
            return true;
        const std::size_t wanted = slots == 0 ? smallest : 2 * slots;
        if (wanted > static_cast<std::size_t>(-1) / sizeof(Node*) / 2)
            return false;
        Node** const old = m_slots;
        auto* const fresh = static_cast<Node**>(KvNAllocation::allocate(wanted * sizeof(Node*)));
        if (fresh == nullptr)
            return false;
        std::memset(fresh, 0, wanted * sizeof(Node*));
        m_slots = fresh;
        m_mask = wanted - 1;
        m_seed = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(fresh)) * 0x9E3779B97F4A7C15ULL;
        for (std::size_t i = 0; i < slots; ++i)
            if (old[i] != nullptr)
                m_slots[slotOf(KeyOf::of(old[i]))] = old[i];
        KvNAllocation::release(old);
        return true;
    }

    /** Moves the nodes behind a freed slot up, as long as that brings them nearer to where their search starts. */
    void closeGap(std::size_t gap)
    {
        for (std::size_t place = (gap + 1) & m_mask; m_slots[place] != nullptr; place = (place + 1) & m_mask) {
            const std::size_t start = startOf(KeyOf::of(m_slots[place]));
            if (((place - start) & m_mask) >= ((place - gap) & m_mask)) {
                m_slots[gap] = m_slots[place];
                gap = place;
            }
        }
        m_slots[gap] = nullptr;
    }

    Node** m_slots = nullptr;
    std::size_t m_mask = 0;
    std::size_t m_used = 0;
    std::uint64_t m_seed = 0;
    bool m_hasDuplicates = false;
};

/** Chains up to this long are searched one by one. */
inline constexpr KvUInt32 IndexThreshold = 8;
