#include "base/KvCBuffer.h"
#include "base/Report.h"
#include "inventory/KvCInventoryItem.h"
#include "inventory/KvCInventoryParameter.h"
#include "inventory/ids/KvNInventoryIDs.h"
#include "tools/kvboardd/Board.h"
#include "tools/kvboardd/Log.h"
#include "tools/kvboardd/Store.h"

/* A board as the target of its firmware update. */

namespace KvNBoardService {

const KvCInventoryItem* Board::item(KvCErrorListPool& errors, const KvCInventoryAddress& address) const
{
    Place place;
    if (!find(errors, address, place, "Board::item"))
        return nullptr;
    if (place.item == nullptr)
        KV_REPORT(errors, BoardNoItem, "Board::item", shownAddress(address));
    return place.item;
}

bool Board::setVersion(KvCErrorListPool& errors, const KvCInventoryAddress& address, const KvCVersion& version)
{
    Place place;
    if (!find(errors, address / KvNInventoryIDs::VERSION, place, "Board::setVersion"))
        return false;
    const KvNReport::Watch watch(errors);
    const KvCVersion* former = place.parameter == nullptr ? nullptr : place.parameter->valueIf<KvCVersion>();
    if (former == nullptr) {
        KV_REPORT(errors, BoardNoVersion, "Board::setVersion", shownAddress(address));
        return false;
    }
    const KvCVersion before = *former;
    place.parameter->setValue<KvCVersion>(errors, version);
    if (watch.grew())
        return false;
    if (!store(errors)) {
        // What is stored may be new all the same, when its folder could not be synced.
        KvCErrorListPool ignored;
        place.parameter->setValue<KvCVersion>(ignored, before);
        store(ignored);
        return false;
    }
    place.parameter->deleteDesignatedValue();
    std::erase(m_written, place.parameter);
    m_stream.reset();
    return true;
}

bool Board::remember(KvCErrorListPool& errors, const UpdateRecord& record)
{
    std::string problem;
    if (!m_store || m_store->writeUpdate(updateRecordText(record), problem))
        return true;
    KV_REPORT(errors, BoardCannotStore, "Board::remember", problem);
    return false;
}

bool Board::recall(UpdateRecord& record, std::string& problem) const
{
    record = UpdateRecord();
    std::optional<std::string> text;
    if (!m_store)
        return true;
    if (!m_store->readUpdate(text, problem))
        return false;
    if (!text)
        return true;
    if (!readUpdateRecord(*text, record, problem)) {
        problem = m_store->updateName() + ": " + problem;
        return false;
    }
    KvCInventoryAddress address;
    address.readFromString(record.address.c_str());
    if (record.state == UpdateRecord::State::Idle || address.getFirstElement() == localAddress())
        return true;
    problem = m_store->updateName() + ": it holds an update of \"" + shown(record.address) +
              "\", which is no address of " + shownAddress(localAddress());
    return false;
}

}  // namespace KvNBoardService
