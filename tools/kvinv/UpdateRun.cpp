#include "tools/kvinv/UpdateRun.h"

#include <algorithm>
#include <thread>

#include "tools/kvinv/Interruption.h"

using Verdict = UpdateFollower::Verdict;

namespace {

/** Thousandths of the bar: the transfer, then the board's own work; the rest is for what the board says in the end. */
constexpr unsigned transferShare = 300;
constexpr unsigned programmedAt = 990;
constexpr unsigned all = 1000;

constexpr KvUInt32 mostErrors = 300;

const KvCInventoryManager& manager()
{
    return KvCInventoryManager::getInstance();
}

}  // namespace

UpdateRun::Outcome UpdateRun::run()
{
    if (!m_lock.take(m_order.boards, m_order.address))
        return Interruption::happened() ? Outcome::Interrupted : Outcome::Failed;
    Outcome outcome = Outcome::Interrupted;
    if (!Interruption::happened()) {
        Progress progress(m_console);
        outcome = withLock(progress);
    }
    return m_lock.release() || outcome != Outcome::Updated ? outcome : Outcome::Failed;
}

UpdateRun::Outcome UpdateRun::withLock(Progress& progress)
{
    m_console.change("transferring " + m_order.image.path + " (" + std::to_string(m_order.image.size) + " bytes)");
    progress.begin("transferring");
    if (!RemoteFile::send(m_order.boards, m_order.address, m_lock, m_order.image, progress, transferShare, m_name,
                          m_console))
        return Interruption::happened() ? Outcome::Interrupted : Outcome::Failed;
    Interruption::letBoardWork();
    const bool isWanted = !Interruption::happened();
    const bool isStarted = isWanted && start();
    if (isWanted && !isStarted && Interruption::count() > 1)
        return leave();
    if (!isStarted) {
        Interruption::giveBack();
        deleteImage();
        return isWanted ? Outcome::Failed : Outcome::Interrupted;
    }
    const Verdict verdict = follow(progress);
    if (m_isLeft)
        return leave();
    Interruption::giveBack();
    const bool isOver = verdict == Verdict::Finished;
    bool good = collect(isOver) && isOver;
    if (good)
        progress.reach(all);
    progress.begin(good ? "done" : "failed");
    m_console.change(good ? "the board has verified the image" : "the update has failed");
    good = finish() && good;
    good = deleteImage() && good;
    return good ? Outcome::Updated : Outcome::Failed;
}

bool UpdateRun::start()
{
    KvCErrorListPool errors;
    long result = 0;
    if (m_order.kind)
        result = manager().update2(errors, m_order.boards.handle(), m_order.address, m_lock.handle(), *m_order.kind,
                                   m_name, m_order.image.size);
    else
        result = manager().update(errors, m_order.boards.handle(), m_order.address, m_lock.handle(), m_name,
                                  m_order.type, m_order.image.size);
    m_console.report(errors);
    return result == 0;
}

bool UpdateRun::ask(Status& status, KvCErrorListPool& errors)
{
    if (m_order.kind) {
        status.state = 0;  // the selector
        return manager().updateStatus2(errors, m_order.boards.handle(), m_order.address, status.state, status.percent,
                                       status.step, status.errorCount) == 0;
    }
    KvNInventoryManager::EUpdateStatus state = KvNInventoryManager::Unknown;
    FirmwareImage::Type type = KvNInventoryManager::Invalid;
    if (manager().updateStatus(errors, m_order.boards.handle(), m_order.address, state, type, status.percent,
                               status.step) != 0)
        return false;
    status.state = state;
    return true;
}

Verdict UpdateRun::askOnce(UpdateFollower& follower, KvCErrorListPool& errors)
{
    Status status;
    const bool isAnswered = ask(status, errors);
    const UpdateFollower::Time now = std::chrono::steady_clock::now();
    if (!isAnswered)
        return follower.failed(now);
    m_status = status;
    return follower.answered(status.state, status.percent, now);
}

void UpdateRun::tell(Verdict verdict, Progress& progress)
{
    if (verdict == Verdict::Running)
        progress.begin(m_status.step == 0 ? "programming" : "programming, step " + std::to_string(m_status.step));
    if (m_told == verdict)
        return;
    m_told = verdict;
    if (verdict == Verdict::Running)
        m_console.change("the board is programming");
    if (verdict == Verdict::NoAnswer) {
        progress.begin("no answer");
        m_console.change("the board does not say how far the update is; it is asked again for 60 seconds");
    }
    if (verdict == Verdict::Lost)
        m_console.problem("the board has lost the update");
    if (verdict == Verdict::GivenUp)
        m_console.problem("the board has not said for 60 seconds how far the update is");
}

Verdict UpdateRun::follow(Progress& progress)
{
    UpdateFollower follower(std::chrono::steady_clock::now());
    for (;;) {
        KvCErrorListPool errors;
        const Verdict verdict = askOnce(follower, errors);
        // An interruption has ended the call: nothing is to be said about the board.
        if (Interruption::count() > 1 && (verdict == Verdict::NoAnswer || verdict == Verdict::GivenUp)) {
            m_isLeft = true;
            return verdict;
        }
        if (verdict == Verdict::GivenUp)
            m_console.report(errors);
        tell(verdict, progress);
        if (verdict != Verdict::Running && verdict != Verdict::NoAnswer)
            return verdict;
        progress.reach(transferShare + (programmedAt - transferShare) * follower.percent() / 100);
        m_isLeft = waitIsLeft(follower.pause());
        if (m_isLeft)
            return verdict;
    }
}

/** Waits, and says whether the user leaves the update to the board meanwhile. */
bool UpdateRun::waitIsLeft(UpdateFollower::Milliseconds time)
{
    constexpr UpdateFollower::Milliseconds slice(50);
    while (Interruption::count() < 2) {
        if (Interruption::happened() && !m_isWarned) {
            m_isWarned = true;
            m_console.warning(
                "the board is programming, which is not interrupted; another interruption leaves it to the board");
        }
        if (time.count() <= 0)
            return false;
        std::this_thread::sleep_for(std::min(slice, time));
        time -= slice;
    }
    return true;
}

/** Fetches the board's errors of an update, which is over or not; false, told, when there are any, or they cannot be
    had. */
bool UpdateRun::collect(bool isOver)
{
    bool good = true;
    if (m_order.kind && isOver) {
        KvCErrorListPool errors;
        for (KvUInt32 i = 0; i < std::min(m_status.errorCount, mostErrors) && good; ++i)
            good = manager().updateErrors2(errors, m_order.boards.handle(), m_order.address, m_lock.handle(), i,
                                           m_errors) == 0;
        m_console.report(m_errors);
        m_console.report(errors);
        return good && m_status.errorCount == 0 && m_errors.getErrorCount() == 0;
    }
    good = manager().updateErrors(m_errors, m_order.boards.handle(), m_order.address, m_lock.handle()) == 0;
    m_console.report(m_errors);
    return good;
}

bool UpdateRun::finish()
{
    KvCErrorListPool errors;
    const long result = manager().updateFinish(errors, m_order.boards.handle(), m_order.address, m_lock.handle());
    m_console.report(errors);
    return result == 0;
}

bool UpdateRun::deleteImage()
{
    if (RemoteFile::remove(m_order.boards, m_order.address, m_lock, m_name, m_console))
        return true;
    m_console.warning("the image may still be on the board, as " + RemoteFile::pathOf(m_name));
    return false;
}

UpdateRun::Outcome UpdateRun::leave()
{
    const std::string board = KvCInventoryAddress(m_order.address.getFirstElement()).toString().c_str();
    m_console.warning("the update is left to the board; when it is over, kvinv rm " + board + " " +
                      RemoteFile::pathOf(m_name) + " deletes the image there");
    return Outcome::LeftToBoard;
}
