#pragma once

#include <optional>

#include "tools/kvinv/FirmwareImage.h"
#include "tools/kvinv/RemoteFile.h"
#include "tools/kvinv/UpdateFollower.h"

/** What is to be updated with what. */
struct UpdateOrder
{
    const Boards& boards;
    const KvCInventoryAddress& address;
    FirmwareImage::Type type;
    std::optional<KvUInt32> kind;
    const RemoteFile::Local& image;
};

/**
 * One update of a board from taking the lock to giving it back. Whatever fails in between is told and does not keep
 * the rest of the end from being done: the board's errors are collected, the update is finished, the image deleted, the
 * lock given back. Only an update that the user leaves to the board is left as it is, but for the lock.
 */
class UpdateRun
{
public:
    enum class Outcome
    {
        Updated,
        Failed,
        Interrupted,  ///< before the board began
        LeftToBoard
    };

    UpdateRun(const UpdateOrder& order, Console& console) : m_order(order), m_console(console), m_lock(console) {}

    Outcome run();
    /** What the board reported of its update. */
    const KvCErrorListPool& errors() const { return m_errors; }

private:
    /** How far the board says it is. */
    struct Status
    {
        KvUInt32 state = 0;
        KvUInt32 percent = 0;
        KvUInt32 step = 0;
        KvUInt32 errorCount = 0;
    };

    Outcome withLock(Progress& progress);
    bool start();
    bool ask(Status& status, KvCErrorListPool& errors);
    UpdateFollower::Verdict follow(Progress& progress);
    UpdateFollower::Verdict askOnce(UpdateFollower& follower, KvCErrorListPool& errors);
    void tell(UpdateFollower::Verdict verdict, Progress& progress);
    bool waitIsLeft(UpdateFollower::Milliseconds time);
    bool collect(bool isOver);
    bool finish();
    bool deleteImage();
    Outcome leave();

    const UpdateOrder m_order;
    Console& m_console;
    BoardLock m_lock;
    RemoteFile::Name m_name;
    Status m_status;
    KvCErrorListPool m_errors;
    std::optional<UpdateFollower::Verdict> m_told;
    bool m_isWarned = false;
    bool m_isLeft = false;
};
