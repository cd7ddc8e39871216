#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/KvTypes.h"
#include "platform/errorhandling/KvCErrorList.h"

/**
 * Finds the first node with a key in a chain of nodes, in constant time on average. An accelerator of a linear search:
 * it never changes an answer. Whoever changes the chain tells it, and drops it when it says that it cannot follow.
 * `KeyOf::of(node)` gives a node's key, a number. Open addressing; each slot holds the key beside the node, so that no
 * node is looked at but the one that is found. Up to `few` nodes stand in the index itself, without a table.
 */
template <class Node, class KeyOf, KvUInt32 few = 0>
requires(few <= 16) class FirstMatchIndex : public KvNAllocation::Object
{
public:
    using Key = decltype(KeyOf::of(static_cast<const Node*>(nullptr)));

    FirstMatchIndex() = default;
    FirstMatchIndex(const FirstMatchIndex&) = delete;
    FirstMatchIndex& operator=(const FirstMatchIndex&) = delete;
    ~FirstMatchIndex() { KvNAllocation::release(m_slots); }

    /** Whether there is anything to follow: a node was appended since the start, or since it was dropped. */
    bool isMade() const { return m_slots != nullptr || m_used != 0; }
    /** Forgets everything, as far as it takes memory. */
    void drop()
    {
        KvNAllocation::release(m_slots);
        m_slots = nullptr;
        m_mask = 0;
        m_used = 0;
        m_hasDuplicates = false;
        m_nodes = {};
    }

    /** The first node with this key; null when there is none. */
    Node* find(Key key) const
    {
        if (m_slots != nullptr)
            return m_slots[slotOf(key)].node;
        const std::size_t place = placeInside(key);
        return place < m_used ? m_nodes[place] : nullptr;
    }

    /** A node came behind all others. False: no memory, drop the index. */
    bool append(Node* node) { return add(node, false); }
    /** A node came before all others. False: no memory, drop the index. */
    bool prepend(Node* node) { return add(node, true); }

    /** A node left; its key is still the one it had. False: the next match is unknown, drop the index. */
    bool remove(Node* node)
    {
        if (!isMade())
            return true;
        const Key key = KeyOf::of(node);
        if (find(key) != node)
            return m_hasDuplicates;
        if (m_hasDuplicates)
            return false;
        if (m_slots != nullptr)
            closeGap(slotOf(key));
        else
            takeOut(placeInside(key));
        --m_used;
        return true;
    }

private:
    struct Slot
    {
        Key key;
        Node* node;  ///< null: the slot is free
    };

    static constexpr unsigned smallestBits = few < 16 ? 5 : 6;  ///< of the first table, which takes few nodes and one
    static constexpr std::uint64_t golden = 0x9E3779B97F4A7C15ULL;

    bool add(Node* node, bool isFirst)
    {
        const Key key = KeyOf::of(node);
        Node** place;
        if (m_slots == nullptr && m_used < few) {
            const std::size_t inside = placeInside(key);
            m_keys[inside] = key;
            place = &m_nodes[inside];
        } else {
            if (!makeRoom())
                return false;
            Slot& slot = m_slots[slotOf(key)];
            slot.key = key;
            place = &slot.node;
        }
        const bool isNew = *place == nullptr;
        m_used += isNew ? 1 : 0;
        m_hasDuplicates = m_hasDuplicates || !isNew;
        if (isNew || isFirst)
            *place = node;
        return true;
    }

    /** Where the key stands in the index itself; m_used when it does not. All keys are compared, several at a time and
        without a branch: a wrong guess where to stop would cost more. */
    std::size_t placeInside(Key key) const
    {
        const auto used = static_cast<KvUInt32>(m_used);
        KvUInt32 found = 0;
        for (KvUInt32 i = 0; i < few; ++i)
            found |= (KvUInt32{0} - static_cast<KvUInt32>((m_keys[i] == key) & (i < used))) & (i + 1);
        return found == 0 ? m_used : found - 1;
    }
    void takeOut(std::size_t place)
    {
        m_keys[place] = m_keys[m_used - 1];
        m_nodes[place] = m_nodes[m_used - 1];
        m_nodes[m_used - 1] = nullptr;
    }

    /** Spreads the keys. The factor comes from the table's address, a secret of the run, so that no stream can be made
        to collide; one product alone would put numbers in a row, or in steps, into clusters. */
    std::size_t startOf(Key key) const
    {
        const std::uint64_t wide = key;
        const std::uint64_t product = ((wide ^ wide >> 32) + m_factor) * golden;
        return static_cast<std::size_t>((product ^ product >> 32) * m_factor >> m_shift);
    }
    /** The slot that holds the key, or the free one where it belongs. */
    std::size_t slotOf(Key key) const
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
        for (std::size_t i = 0; slots == 0 && i < m_used; ++i)
            m_slots[slotOf(m_keys[i])] = {m_keys[i], m_nodes[i]};
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
    std::array<Key, few> m_keys{};
    std::array<Node*, few> m_nodes{};
};

/** Chains up to this long are searched one by one. */
inline constexpr KvUInt32 IndexThreshold = 8;
