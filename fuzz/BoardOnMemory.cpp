#include "fuzz/BoardOnMemory.h"

#include "base/Crc32.h"
#include "base/KvCBuffer.h"
#include "inventory/KvCInventoryData.h"
#include "inventory/KvCInventoryItem.h"
#include "platform/service/Directory.h"
#include "platform/service/StandardError.h"
#include "tools/common/JsonEvents.h"
#include "tools/common/TreeJson.h"
#include "tools/kvboardd/Store.h"

/** Instead of writing, what is written is judged: one line that steers no terminal. */
bool KvNService::writeStandardError(std::string_view text) noexcept
{
    KV_FUZZ_CHECK(text.ends_with('\n') && text.size() <= 4096);
    text.remove_suffix(1);
    KV_FUZZ_CHECK(KvNJson::isUtf8(text));
    while (!text.empty()) {
        const auto [code, bytes] = KvNJson::firstCharacter(text);
        KV_FUZZ_CHECK(!KvNJson::isDangerous(code));
        text.remove_prefix(bytes);
    }
    return true;
}

namespace KvNFuzz {

using namespace KvNBoardService;

namespace {

constexpr KvUInt32 ownAddress = 0x7F000001;
constexpr std::size_t chunkBytes = 4096;

constexpr std::string_view treeText = R"({"id": "HCN", "index": 4711, "parameters": [
    {"id": "HW_COMPATIBILITY_ID", "type": "UInt32", "value": 3}], "items": [
    {"id": "FIRMWARE", "parameters": [{"id": "VERSION", "type": "Version", "value": "3.1"}]},
    {"id": "TEST", "parameters": [
        {"id": "TEST_UI8", "type": "UInt8", "value": 7, "modifiable": true},
        {"id": "SIGNAL_NAME", "type": "String", "value": "text", "modifiable": true},
        {"id": "TEST_F64", "type": "Float64", "value": 1.5, "modifiable": true}]}]})";

std::unique_ptr<Board> makeBoard()
{
    BoardDescription description;
    description.serialNumber = BoardOnMemory::serialNumber;
    description.boardType = 6003;
    description.boardName = "IO-1";
    description.systemName = "Rack A";
    description.address = ownAddress;
    KvNJson::TextSource source(treeText);
    std::string problem;
    description.tree = KvNTreeJson::readItem(source, problem);
    KV_FUZZ_CHECK(problem.empty());
    return std::make_unique<Board>(std::move(description), nullptr, Board::Limits());
}

/** The folder for files, which is emptied for each board. */
std::unique_ptr<KvNService::Directory> emptyFolder()
{
    static std::string problem;
    static const auto folder = KvNService::TemporaryFolder::make("kvinventory-fuzz-", problem);
    KV_FUZZ_CHECK(folder != nullptr);
    auto directory = KvNService::Directory::open(folder->path(), problem);
    KV_FUZZ_CHECK(directory != nullptr);
    KvNService::FileProblem why;
    std::vector<KvNService::Directory::Entry> entries;
    KV_FUZZ_CHECK(directory->list([](std::string_view) { return true; }, entries, why));
    for (const KvNService::Directory::Entry& entry : entries)
        directory->remove(entry.name, why);
    return directory;
}

void runAtOnce(const std::function<void()>& work, const std::function<void()>& done)
{
    work();
    done();
}

KvCInventoryAddress addressOf(const char* text)
{
    KvCInventoryAddress address;
    address.readFromString(text);
    return address;
}

}  // namespace

BoardOnMemory::BoardOnMemory(const Files::Limits& limits)
    : m_board(makeBoard()),
      m_files(emptyFolder(), limits, [this] { return std::optional<KvUInt64>(m_nextName++); }),
      m_transfers(m_files, {chunkBytes, 8192}, runAtOnce),
      m_locks(
          {}, [this] { return std::optional<KvUInt32>(m_nextId++); },
          [this](KvUInt32 accessId, LockTable::End) {
              m_board->dropWritten(accessId);
              m_transfers.lockEnded(accessId);
          }),
      m_update(*m_board, updateTime),
      m_inventory({*m_board, m_locks, m_update, m_files}, [this] { return now; }),
      m_access(*m_board, m_locks, m_files, m_transfers, [this] { return now; }, {0x0102030405060708u, chunkBytes}),
      m_mapper(111)
{
    m_mapper.add(InventoryService::program, InventoryService::version, PortMapper::Protocol::Tcp, 2000);
    m_mapper.add(DeviceAccessService::program, DeviceAccessService::version, PortMapper::Protocol::Udp, 2001);
}

Answer BoardOnMemory::call(Program program, KvUInt32 procedure, const Bytes& arguments, KvUInt32 peer, bool isDatagram)
{
    Call call;
    call.procedure = procedure;
    call.peer = peer;
    call.datagram = isDatagram;
    call.arguments = arguments;
    Answer answer = program == Program::DeviceAccess ? m_access.call(call)
                    : program == Program::Inventory  ? m_inventory.call(call)
                                                     : m_mapper.call(call);
    // What is to be waited for has been done at once.
    KV_FUZZ_CHECK(answer.later == nullptr || answer.later->isGiven());
    if (answer.later != nullptr)
        answer = answer.later->take();
    KV_FUZZ_CHECK(answer.results.size() <= 65536);
    return answer;
}

void BoardOnMemory::pass(std::chrono::milliseconds time)
{
    now += time;
    m_locks.expire(now);
    while (m_inventory.advanceUpdate() == std::chrono::milliseconds(1))
        ;
}

Bytes firmwareImage(std::size_t bytes, bool isChecksumWrong)
{
    Bytes image(bytes);
    for (std::size_t i = 0; i < bytes; ++i)
        image[i] = static_cast<unsigned char>(i * 7);
    KvCErrorListPool errors;
    KvCInventoryItem root(errors, addressOf("ROOT"), nullptr);
    const KvUInt32 checksum = KvNCrc32::crc32(0, image.data(), bytes) ^ (isChecksumWrong ? 1u : 0u);
    root.createParameter<KvCVersion>(errors, addressOf("FIRMWARE/VERSION"), KvCVersion("4.0"), "", false, 0, nullptr,
                                     nullptr, nullptr);
    root.createParameter<KvUInt32>(errors, addressOf("FIRMWARE/CHECKSUM_CRC32"), checksum, "", false, 0, nullptr,
                                   nullptr, nullptr);
    KvCBuffer section(errors);
    KvCInventoryData::generateInventorySection(errors, section, &root);
    KV_FUZZ_CHECK(errors.getErrorCount() == 0);
    image.insert(image.end(), section.getStartPointer(), section.getStartPointer() + section.getOccupiedSize());
    return image;
}

Arguments& Arguments::address(const char* text)
{
    const KvCInventoryAddress address = addressOf(text);
    number(address.getLength()).number(2 * address.getLength());
    for (KvUInt32 i = 0; i < address.getLength(); ++i)
        number(address.getCategoryAt(i)).number(address.getIndexAt(i));
    return *this;
}

}  // namespace KvNFuzz
