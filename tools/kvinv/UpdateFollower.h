#pragma once

#include <chrono>

#include "platform/KvTypes.h"

/**
 * What a board's answers about its update mean. A board that does not know how far the update is, or does not answer,
 * is asked again until a minute has brought no better answer; the percentage that it tells may do what it likes, what
 * is made of it only grows.
 * Pure logic: the time is an argument and never goes backwards.
 */
class UpdateFollower
{
public:
    using Time = std::chrono::steady_clock::time_point;
    using Milliseconds = std::chrono::milliseconds;

    enum class Verdict
    {
        Running,   ///< to be asked again
        NoAnswer,  ///< the board does not answer, or does not know; to be asked again
        Finished,  ///< the update is over, its errors say how
        Lost,      ///< the board knows of no update
        GivenUp    ///< the board has not said anything for too long
    };

    static constexpr Milliseconds patience{60000};

    explicit UpdateFollower(Time now) : m_lastAnswer(now) {}

    /** The board has told its state (KvNInventoryManager::EUpdateStatus) and the percentage of the whole. */
    Verdict answered(KvUInt32 state, KvUInt32 percent, Time now);
    /** The board could not be asked. */
    Verdict failed(Time now);

    /** How long to wait before the board is asked again. */
    Milliseconds pause() const { return m_isAnswering ? Milliseconds(200) : Milliseconds(1000); }
    /** The percentage that has been reached, 0 to 100. */
    KvUInt32 percent() const { return m_percent; }

private:
    Time m_lastAnswer;
    KvUInt32 m_percent = 0;
    bool m_isAnswering = true;
};
