#include "tools/kvboardd/Update.h"

#include <algorithm>
#include <new>
#include <utility>

#include "base/Report.h"
#include "inventory/KvCInventoryItem.h"
#include "inventory/KvCInventoryParameter.h"
#include "inventory/ids/KvNInventoryIDs.h"
#include "tools/kvboardd/Image.h"

namespace KvNBoardService {

namespace {

using Milliseconds = Update::Milliseconds;

/** How often a running update is looked after, and while it reads the image. */
constexpr Milliseconds programmingPause{100};
constexpr Milliseconds verifyingPause{1};

constexpr KvUInt32 verifyPercent = 80;    ///< reached when the time of the simulated steps is over
constexpr KvUInt32 verifiedPercent = 99;  ///< all of the image is good, its version is not stored yet
constexpr KvUInt32 donePercent = 100;

/** VERSION of an item; null when there is none. */
const KvCVersion* versionOf(const KvCInventoryItem& item)
{
    const KvCInventoryParameter* version = item.getParameter(KvNInventoryIDs::VERSION);
    return version == nullptr ? nullptr : version->valueIf<KvCVersion>();
}

}  // namespace

Update::Update(UpdateTarget& target, Milliseconds length) : m_target(target), m_length(length) {}

Update::~Update() = default;

bool Update::restore(std::string& problem)
{
    UpdateRecord record;
    if (!m_target.recall(record, problem))
        return false;
    m_record = std::move(record);
    if (m_record.state == UpdateRecord::State::Idle)
        return true;
    m_state = State::Failed;
    if (m_record.state == UpdateRecord::State::Failed) {
        m_errors.deSerialize(m_record.errors.data(), m_record.errors.size());
        return true;
    }
    m_address.readFromString(m_record.address.c_str());
    KvCErrorListPool unknownAddress;  // then it has no version
    const KvCInventoryItem* item = m_target.item(unknownAddress, m_address);
    const KvCVersion* version = item == nullptr ? nullptr : versionOf(*item);
    if (m_record.state == UpdateRecord::State::Verified && version != nullptr && *version == newVersion()) {
        m_state = State::Done;
        reach(donePercent, Step::Verify);
        return true;
    }
    KV_REPORT(m_errors, BoardUpdateInterrupted, "Update::restore", m_record.address, newVersion().getAsString(),
              version == nullptr ? KvCString("no version") : version->getAsString());
    rememberFailure();
    return true;
}

std::unique_ptr<Image> Update::openImage(KvCErrorListPool& errors, const Order& order, const Opener& open) const
{
    const KvCInventoryItem* item = m_target.item(errors, order.address);
    if (item == nullptr)
        return nullptr;
    if (versionOf(*item) == nullptr) {
        KV_REPORT(errors, BoardNoVersion, "Update::begin", order.address.toString());
        return nullptr;
    }
    std::unique_ptr<ImageSource> source = open(errors);
    if (!source)
        return nullptr;
    if (source->size() != order.size) {
        KV_REPORT(errors, BoardImageSize, "Update::begin", std::to_string(order.size), std::to_string(source->size()));
        return nullptr;
    }
    return Image::open(errors, std::move(source), order.firmwareType, m_target.tree(), *item);
}

bool Update::begin(KvCErrorListPool& errors, Time now, Order order, const Opener& open)
{
    if (!mayChange(errors))
        return false;
    UpdateRecord record;
    record.state = UpdateRecord::State::Running;
    record.address = order.address.toString().c_str();
    record.firmwareType = order.firmwareType;
    std::unique_ptr<Image> image;
    if (record.address.empty() && !order.address.isEmpty())
        KV_REPORT(errors, BoardOutOfMemory, "Update::begin");
    else
        image = openImage(errors, order, open);
    if (image)
        record.newVersion = image->version().getAsULong64();
    if (!image || !replaceRecord(errors, record)) {
        KV_REPORT(errors, BoardCannotUpdate, "Update::begin", record.address);
        return false;
    }
    forget();
    m_record = std::move(record);
    m_address = std::move(order.address);
    m_image = std::move(image);
    m_begun = now;
    m_state = State::Running;
    m_step = Step::Check;
    return true;
}

/** Remembers `record`, or the former one still. */
bool Update::replaceRecord(KvCErrorListPool& errors, const UpdateRecord& record)
{
    if (m_target.remember(errors, record)) {
        m_isStoredOtherwise = false;
        return true;
    }
    // What is stored may be the new one all the same, when its folder could not be synced.
    m_isStoredOtherwise = true;
    rememberAgain();
    return false;
}

/** Stores what is known, which could not be done before; when it still cannot, the next time comes. */
void Update::rememberAgain() noexcept
{
    if (!m_isStoredOtherwise)
        return;
    try {
        KvCErrorListPool ignored;
        m_isStoredOtherwise = !m_target.remember(ignored, m_record);
    } catch (const std::bad_alloc&) {
        return;
    }
}

Milliseconds Update::advance(Time now) noexcept
{
    if (m_state != State::Running) {
        rememberAgain();
        return Milliseconds(0);
    }
    const auto elapsed = std::chrono::duration_cast<Milliseconds>(now - m_begun);
    if (elapsed < m_length) {
        simulate(elapsed);
        return std::min(programmingPause, m_length - elapsed);
    }
    try {
        verify();
    } catch (const std::bad_alloc&) {
        KV_REPORT(m_errors, BoardOutOfMemory, "Update::verify");
        fail();
    }
    return m_state == State::Running ? verifyingPause : Milliseconds(0);
}

void Update::simulate(Milliseconds elapsed) noexcept
{
    constexpr int parts = 10;
    const auto part = elapsed * parts / m_length;
    const Step step = part < 1 ? Step::Check : part < 3 ? Step::Erase : Step::Program;
    reach(static_cast<KvUInt32>(elapsed * verifyPercent / m_length), step);
}

void Update::verify()
{
    reach(verifyPercent, Step::Verify);
    const Image::Verification verification = m_image->verify(m_errors);
    if (verification == Image::Verification::Failed)
        return fail();
    const KvUInt64 all = std::max<KvUInt64>(m_image->contentBytes(), 1);
    const KvUInt64 part = (verifiedPercent - verifyPercent) * m_image->verifiedBytes() / all;
    reach(verifyPercent + static_cast<KvUInt32>(part), Step::Verify);
    if (verification == Image::Verification::Good)
        conclude();
}

/** The image is good: its version becomes the board's. When the service is killed in here, the record and the version
    together tell the next one whether the update was done. */
void Update::conclude()
{
    m_record.state = UpdateRecord::State::Verified;
    if (!m_target.remember(m_errors, m_record) || !m_target.setVersion(m_errors, m_address, newVersion()))
        return fail();
    m_image.reset();
    m_state = State::Done;
    reach(donePercent, Step::Verify);
}

void Update::fail() noexcept
{
    KV_REPORT(m_errors, BoardUpdateFailed, "Update::fail", m_record.address, newVersion().getAsString());
    m_image.reset();
    m_state = State::Failed;
    rememberFailure();
}

/** Stores why the update failed. When that cannot be done, what is stored still says that it was not completed. */
void Update::rememberFailure() noexcept
{
    try {
        m_record.errors = m_errors.serialize();
    } catch (const std::bad_alloc&) {
        return;
    }
    if (m_record.errors.empty())
        return;
    m_record.state = UpdateRecord::State::Failed;
    m_isStoredOtherwise = true;
    rememberAgain();
}

bool Update::finish(KvCErrorListPool& errors)
{
    if (!mayChange(errors))
        return false;
    if (m_state == State::Idle)
        return true;
    if (!replaceRecord(errors, UpdateRecord()))
        return false;
    forget();
    return true;
}

Update::Status Update::status() const
{
    Status status;
    status.state = m_state;
    status.firmwareType = m_record.firmwareType;
    status.percent = m_percent;
    status.step = m_step;
    status.errors = m_errors.getErrorCount();
    return status;
}

/** Whether no update is running; reports when one is. */
bool Update::mayChange(KvCErrorListPool& errors) const
{
    if (m_state != State::Running)
        return true;
    KV_REPORT(errors, BoardUpdateRunning, "Update::mayChange", m_record.address, m_percent);
    return false;
}

void Update::reach(KvUInt32 percent, Step step) noexcept
{
    m_percent = std::max(m_percent, percent);
    m_step = step;
}

void Update::forget() noexcept
{
    m_state = State::Idle;
    m_record = UpdateRecord();
    m_address = KvCInventoryAddress();
    m_percent = 0;
    m_step = Step::None;
    m_errors.clear();
}

}  // namespace KvNBoardService
