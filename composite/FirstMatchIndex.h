#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/KvTypes.h"
#include "platform/errorhandling/KvCErrorList.h"

/**
 * Finds the first node with a key in a chain of nodes, in constant time on average. An accelerator of a linear search:
 * it never changes an answer. Whoever changes the chain tells it, and drops it when it says that it cannot follow.
 * `KeyOf::of(node)` gives a node's key (KvUInt64). Open addressing; each slot holds the key beside the node, so that no
 * node is looked at but the one that is found.
 */
template <class Node, class KeyOf>
class FirstMatchIndex : public KvNAllocation::Object
{
public:
    FirstMatchIndex() = default;
    FirstMatchIndex(const FirstMatchIndex&) = delete;
    FirstMatchIndex& operator=(const FirstMatchIndex&) = delete;
    ~FirstMatchIndex() { KvNAllocation::release(m_slots); }

    /** Whether there is anything to follow: a node was appended since the start, or since it was dropped. */
    bool isMade() const { return m_slots != nullptr; }
    /** Forgets everything, as far as it takes memory. */
    void drop()
    {
        KvNAllocation::release(m_slots);
        m_slots = nullptr;
        m_mask = 0;
        m_used = 0;
        m_hasDuplicates = false;
    }

    /** The first node with this key; null when there is none. */
    Node* find(KvUInt64 key) const { return m_slots == nullptr ? nullptr : m_slots[slotOf(key)].node; }

    /** A node came behind all others. False: no memory, drop the index. */
    bool append(Node* node)
    {
        if (!makeRoom())
            return false;
        const KvUInt64 key = KeyOf::of(node);
        Slot& slot = m_slots[slotOf(key)];
        if (slot.node != nullptr) {
            m_hasDuplicates = true;
            return true;
        }
        slot = {key, node};
        ++m_used;
        return true;
    }

    /** A node came before all others. False: no memory, drop the index. */
    bool prepend(Node* node)
    {
        if (!makeRoom())
            return false;
        const KvUInt64 key = KeyOf::of(node);
        Slot& slot = m_slots[slotOf(key)];
        if (slot.node != nullptr)
            m_hasDuplicates = true;
        else
            ++m_used;
        slot = {key, node};
        return true;
    }

    /** A node left; its key is still the one it had. False: the next match is unknown, drop the index. */
    bool remove(Node* node)
    {
        if (m_slots == nullptr)
            return true;
        const std::size_t place = slotOf(KeyOf::of(node));
        if (m_slots[place].node != node)
            return m_hasDuplicates;
        if (m_hasDuplicates)
            return false;
        closeGap(place);
        --m_used;
        return true;
    }

private:
    struct Slot
    {
        KvUInt64 key;
        Node* node;  ///< null: the slot is free
    };

    static constexpr unsigned smallestBits = 5;
    static constexpr std::uint64_t golden = 0x9E3779B97F4A7C15ULL;

    /** Spreads the keys. The factor comes from the table's address, a secret of the run, so that no stream can be made
        to collide; one product alone would put numbers in a row into clusters. */
    std::size_t startOf(KvUInt64 key) const
    {
        const std::uint64_t product = static_cast<std::uint64_t>(key) * m_factor;
        return static_cast<std::size_t>((product ^ product >> 32) * golden >> m_shift);
    }
    /** The slot that holds the key, or the free one where it belongs. */
    std::size_t slotOf(KvUInt64 key) const
    {
        std::size_t place = startOf(key);
        while (m_slots[place].key != key && m_slots[place].node != nullptr)
            place = (place + 1) & m_mask;
        return place;
    }

    /** At most half of the slots are ever used, so that searches stay short. */
    bool makeRoom()
    {
        const std::size_t slots = m_slots == nullptr ? 0 : m_mask + 1;
        if (2 * (m_used + 1) <= slots)
            return true;
        const std::size_t wanted = slots == 0 ? std::size_t{1} << smallestBits : 2 * slots;
        if (wanted > static_cast<std::size_t>(-1) / sizeof(Slot) / 2)
            return false;
        Slot* const old = m_slots;
        auto* const fresh = static_cast<Slot*>(KvNAllocation::allocate(wanted * sizeof(Slot)));
        if (fresh == nullptr)
            return false;
        std::memset(fresh, 0, wanted * sizeof(Slot));
        m_slots = fresh;
        m_mask = wanted - 1;
        m_shift = slots == 0 ? 64 - smallestBits : m_shift - 1;
        m_factor = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(fresh)) * golden | 1;
        for (std::size_t i = 0; i < slots; ++i)
            if (old[i].node != nullptr)
                m_slots[slotOf(old[i].key)] = old[i];
        KvNAllocation::release(old);
        return true;
    }

    /** Moves the nodes behind a freed slot up, as long as that brings them nearer to where their search starts. */
    void closeGap(std::size_t gap)
    {
        for (std::size_t place = (gap + 1) & m_mask; m_slots[place].node != nullptr; place = (place + 1) & m_mask) {
            const std::size_t start = startOf(m_slots[place].key);
            if (((place - start) & m_mask) >= ((place - gap) & m_mask)) {
                m_slots[gap] = m_slots[place];
                gap = place;
            }
        }
        m_slots[gap] = {};
    }

    Slot* m_slots = nullptr;
    std::size_t m_mask = 0;
    std::size_t m_used = 0;
    std::uint64_t m_factor = 0;
    unsigned m_shift = 0;
    bool m_hasDuplicates = false;
};

/** Chains up to this long are searched one by one. */
inline constexpr KvUInt32 IndexThreshold = 8;
