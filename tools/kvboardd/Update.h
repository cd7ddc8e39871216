#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "base/KvCVersion.h"
#include "inventory/KvCInventoryAddress.h"
#include "platform/KvTypes.h"
#include "platform/errorhandling/KvCErrorList.h"
#include "tools/kvboardd/UpdateRecord.h"

class KvCInventoryItem;

namespace KvNBoardService {

class Image;
class ImageSource;

/** What an update changes, and where it is remembered. Operations return false, and have reported why and changed
    nothing, when they failed. */
class UpdateTarget
{
public:
    virtual ~UpdateTarget() = default;
    /** The root of the board's tree. */
    virtual const KvCInventoryItem& tree() const = 0;
    /** The item at `address`; null, and reported, when there is none. */
    virtual const KvCInventoryItem* item(KvCErrorListPool& errors, const KvCInventoryAddress& address) const = 0;
    /** Makes `version` the VERSION of the item at `address`, and stores the tree. */
    virtual bool setVersion(KvCErrorListPool& errors, const KvCInventoryAddress& address,
                            const KvCVersion& version) = 0;
    /** Stores the record of the update instead of the former one. */
    virtual bool remember(KvCErrorListPool& errors, const UpdateRecord& record) = 0;
    /** The record last stored, one without an update when there is none. False, and why in `problem`, when it cannot be
        read or is not this board's. */
    virtual bool recall(UpdateRecord& record, std::string& problem) const = 0;
};

/**
 * The firmware update of one board. It begins when the image fits, then goes through the steps: check, erase, program
 * (simulated; they take the time given) and verify, which reads the image. It is done when the image has been verified
 * and its version stands in the board's tree; else it has failed, and its errors say why. Both last until finish(), or
 * until another update begins. Whoever begins an update does not matter to its course.
 * Pure logic: the time is an argument and never goes backwards.
 */
class Update
{
public:
    using Time = std::chrono::steady_clock::time_point;
    using Milliseconds = std::chrono::milliseconds;

    enum class State
    {
        Idle,
        Running,
        Done,
        Failed
    };

    /** What the update is doing; percentages of the whole from each step's first. */
    enum class Step
    {
        None = 0,
        Check = 1,    ///< 0 %, a tenth of the time
        Erase = 2,    ///< 8 %, two tenths
        Program = 3,  ///< 24 %, the rest of the time
        Verify = 4    ///< 80 %; 100 % when all is done
    };

    struct Status
    {
        State state = State::Idle;
        KvUInt32 firmwareType = 0;  ///< as on the wire; means something unless idle
        KvUInt32 percent = 0;       ///< of the whole; never less than before
        Step step = Step::None;
        KvUInt32 errors = 0;
    };

    struct Order
    {
        KvCInventoryAddress address;  ///< of the item
        KvUInt32 firmwareType = 0;    ///< as on the wire
        KvUInt64 size = 0;            ///< that the image must have
    };

    /** Opens the image; null, and reported, when that fails. */
    using Opener = std::function<std::unique_ptr<ImageSource>(KvCErrorListPool&)>;

    /** `target` must outlive the update. `length`: how long everything before the verification takes. */
    Update(UpdateTarget& target, Milliseconds length);
    ~Update();

    /** Takes up what was remembered when the service ended: an update that was under way has failed then. False, and
        why in `problem`, when that cannot be read. */
    bool restore(std::string& problem);

    /** Begins an update; false, and reported, when another is running or something does not fit. May throw
        std::bad_alloc. Nothing has changed then. A finished update that nobody has closed makes place. */
    bool begin(KvCErrorListPool& errors, Time now, Order order, const Opener& open);

    /** Goes on with a running update, for a few milliseconds at most; gives back when to come again, 0 when it is not
        running any more. Otherwise makes up for a record that could not be stored. */
    Milliseconds advance(Time now) noexcept;

    /** Closes a finished update and forgets its errors; without an update nothing happens. False, and reported, while
        one is running or when this cannot be remembered. May throw std::bad_alloc. */
    bool finish(KvCErrorListPool& errors);

    Status status() const;
    /** Why the update failed. */
    const KvCErrorListPool& errors() const { return m_errors; }
    /** What is updated, as text; empty when idle. */
    const std::string& address() const { return m_record.address; }
    KvCVersion newVersion() const { return KvCVersion(m_record.newVersion); }

private:
    std::unique_ptr<Image> openImage(KvCErrorListPool& errors, const Order& order, const Opener& open) const;
    bool mayChange(KvCErrorListPool& errors) const;
    bool replaceRecord(KvCErrorListPool& errors, const UpdateRecord& record);
    void simulate(Milliseconds elapsed) noexcept;
    void verify();
    void conclude();
    void fail() noexcept;
    void rememberFailure() noexcept;
    void rememberAgain() noexcept;
    void reach(KvUInt32 percent, Step step) noexcept;
    void forget() noexcept;

    UpdateTarget& m_target;
    Milliseconds m_length;
    State m_state = State::Idle;
    UpdateRecord m_record;
    KvCInventoryAddress m_address;
    Time m_begun;
    bool m_isStoredOtherwise = false;  ///< another record than m_record may be stored, for the disk's sake
    KvUInt32 m_percent = 0;
    Step m_step = Step::None;
    std::unique_ptr<Image> m_image;
    KvCErrorListPool m_errors;
};

}  // namespace KvNBoardService
