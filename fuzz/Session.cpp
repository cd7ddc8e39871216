#include <algorithm>
#include <string>

#include "base/Crc32.h"
#include "fuzz/BoardOnMemory.h"
#include "fuzz/SessionModel.h"

/*
 * Sessions of two hosts with one board: each call is made to the services and to the model, and both say the same, of
 * locks and their leases, of files on their way and in place, of values, and of the update. Each call takes an
 * operation byte, one that says who calls with which access id, and what the operation needs.
 */

using namespace KvNFuzz;
using namespace KvNBoardService;
using Program = BoardOnMemory::Program;
using Status = SessionModel::Status;

namespace {

constexpr KvUInt32 hosts[] = {0x7F000001, 0x0A000002};
constexpr unsigned mostCalls = 200;
constexpr KvUInt32 wrongId = 5;
const char* const root = "HCN[4711]";
const char* const parameter = "HCN[4711]/TEST/TEST_UI8";
const char* const firmware = "HCN[4711]/FIRMWARE";

const SessionModel::Image& image()
{
    static const SessionModel::Image images{firmwareImage(100, false), firmwareImage(100, true)};
    return images;
}

std::string nameOf(KvUInt64 number)
{
    std::string name(16, '0');
    for (auto place = name.rbegin(); place != name.rend(); ++place, number >>= 4)
        *place = "0123456789abcdef"[number & 0xF];
    return name;
}

KvUInt32 crcOf(const Bytes& bytes)
{
    return KvNCrc32::crc32(0, bytes.data(), bytes.size());
}

class Session
{
public:
    explicit Session(Input& input) : m_input(input) {}

    void run()
    {
        for (unsigned i = 0; i < mostCalls && !m_input.isEmpty(); ++i) {
            const unsigned operation = m_input.byte();
            const unsigned who = m_input.byte();
            m_host = who & 1;
            const std::size_t known = who >> 1 & 7;
            m_id = known < m_ids.size() ? m_ids[m_ids.size() - 1 - known] : wrongId;
            step(operation % 18);
        }
        compareLocks();
        compareFiles();
        compareRest();
    }

private:
    void step(unsigned operation)
    {
        switch (operation) {
            case 0:
                return request();
            case 1:
                return same(access(3, Arguments().number(m_id)), m_model.keep(m_host, m_id));
            case 2:
                return same(access(4, Arguments().number(m_id)), m_model.release(m_host, m_id));
            case 3:
                return pass(m_input.byte() * 250);
            case 4:
                return compareLocks();
            case 5:
                return generateName();
            case 6:
                return beginAny();
            case 7:
                return put();
            case 8:
                return end();
            case 9:
                return abort();
            case 10:
                return remove();
            case 11:
                return compareFiles();
            case 12:
                return write();
            case 13:
                return apply();
            case 14:
                return update();
            case 15:
                return finishUpdate();
            case 16:
                return compareRest();
            default:
                return putWhole();
        }
    }

    Input access(KvUInt32 procedure, const Arguments& arguments)
    {
        return call(Program::DeviceAccess, procedure, arguments);
    }
    Input inventory(KvUInt32 procedure, const Arguments& arguments)
    {
        return call(Program::Inventory, procedure, arguments);
    }
    Input call(Program program, KvUInt32 procedure, const Arguments& arguments)
    {
        const Answer answer = m_board.call(program, procedure, arguments.bytes(), hosts[m_host]);
        KV_FUZZ_CHECK(answer.kind == Answer::Kind::Success);
        m_results = answer.results;
        return Input(m_results.data(), m_results.size());
    }
    static void same(Input results, Status expected) { KV_FUZZ_CHECK(results.number(4) == expected); }
    /** The same for the inventory manager service, which says no more than that it refused. */
    static void same(Input results, bool isGood) { KV_FUZZ_CHECK(results.number(4) == (isGood ? 0u : 1u)); }

    KvUInt64 name() { return BoardOnMemory::firstName + m_input.byte() % 8; }
    KvUInt32 transfer()
    {
        // Mostly the one under way.
        const unsigned how = m_input.byte() % 8;
        return how == 7   ? 0
               : how == 6 ? m_model.lastTransfer() + 1
               : how == 5 ? m_model.lastTransfer() - 1
                          : m_model.lastTransfer();
    }
    Arguments atRoot() const { return Arguments().address(root).number(m_id); }

    void pass(unsigned milliseconds)
    {
        m_board.pass(std::chrono::milliseconds(milliseconds));
        m_model.pass(milliseconds);
    }

    void request()
    {
        const unsigned what = m_input.byte();
        const KvUInt32 level = what & 3;
        const KvUInt32 id = (what & 4) != 0 ? m_id : 0;
        const KvUInt32 nonce = what >> 3 & 7;
        KvUInt32 given = 0;
        const Status expected = m_model.request(m_host, level, id, nonce, given);
        Input results = access(2, Arguments().number(level).number(id).longNumber(nonce).text("who"));
        KV_FUZZ_CHECK(results.number(4) == expected);
        KV_FUZZ_CHECK(results.number(4) == given);
        if (given != 0 && std::find(m_ids.begin(), m_ids.end(), given) == m_ids.end())
            m_ids.push_back(given);
    }

    void generateName()
    {
        Input results = inventory(10, atRoot());
        const bool isGood = m_model.authority(m_host, m_id) == Status::Ok;
        same(results, isGood);
        if (!isGood)
            return;
        const std::string expected = nameOf(m_model.generateName());
        results.number(4);
        results.bytes(results.number(4) * 4);
        KV_FUZZ_CHECK(results.number(4) == expected.size());
        for (const char character : expected)
            KV_FUZZ_CHECK(results.number(4) == static_cast<unsigned char>(character));
    }

    void beginAny()
    {
        const KvUInt64 file = name();
        begin(file, m_input.number(2));
    }

    KvUInt32 begin(KvUInt64 name, KvUInt64 size)
    {
        Status expected = m_model.authority(m_host, m_id);
        KvUInt32 transferId = 0;
        if (expected == Status::Ok)
            expected = m_model.begin(m_id, name, size, transferId);
        Input results =
            access(5, Arguments().number(m_id).text(Files::directoryName).text(nameOf(name)).longNumber(size));
        KV_FUZZ_CHECK(results.number(4) == expected);
        KV_FUZZ_CHECK(results.number(4) == transferId);
        return transferId;
    }

    void putBytes(KvUInt32 transferId, KvUInt64 offset, const Bytes& bytes)
    {
        Status expected = m_model.authority(m_host, m_id);
        KvUInt64 received = 0;
        if (expected == Status::Ok)
            expected = m_model.put(m_id, transferId, offset, bytes, received);
        Input results = access(6, Arguments().number(m_id).number(transferId).longNumber(offset).counted(bytes));
        KV_FUZZ_CHECK(results.number(4) == expected);
        KV_FUZZ_CHECK(results.number(4) == 0 && results.number(4) == received);
    }

    void put()
    {
        const KvUInt32 transferId = transfer();
        const unsigned where = m_input.byte();
        const std::size_t held = m_model.received() == nullptr ? 0 : m_model.received()->size();
        const KvUInt64 offset = where < 128   ? held
                                : where < 192 ? held - std::min<std::size_t>(held, where - 128)
                                              : held + (where - 192);
        const unsigned count = m_input.byte();
        // What stands at a place is nearly always the same, so that bytes can come twice.
        Bytes bytes(count == 255 ? SessionModel::chunkBytes + 1 : count);
        for (std::size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = static_cast<unsigned char>((offset + i) * 3 + (count % 16 == 15 ? 1 : 0));
        putBytes(transferId, offset, bytes);
    }

    void endWith(KvUInt32 transferId, KvUInt32 crc32)
    {
        Status expected = m_model.authority(m_host, m_id);
        if (expected == Status::Ok)
            expected = m_model.end(m_id, transferId, crc32);
        same(access(7, Arguments().number(m_id).number(transferId).number(crc32)), expected);
    }

    void end()
    {
        const KvUInt32 transferId = transfer();
        if (m_model.received() != nullptr)
            m_crc32 = crcOf(*m_model.received());
        endWith(transferId, m_crc32 ^ (m_input.byte() % 8 == 7 ? 1u : 0u));
    }

    void abort()
    {
        const KvUInt32 transferId = transfer();
        Status expected = m_model.authority(m_host, m_id);
        if (expected == Status::Ok)
            expected = m_model.abort(m_id, transferId);
        same(access(8, Arguments().number(m_id).number(transferId)), expected);
    }

    void remove()
    {
        const KvUInt64 file = name();
        Status expected = m_model.authority(m_host, m_id);
        if (expected == Status::Ok)
            expected = m_model.remove(file);
        same(access(9, Arguments().number(m_id).text(Files::directoryName).text(nameOf(file))), expected);
    }

    /** A whole file: a good image, one whose checksum is wrong, or no image. */
    void putWhole()
    {
        const KvUInt64 file = name();
        const unsigned kind = m_input.byte() % 3;
        const Bytes content = kind == 0 ? image().good : kind == 1 ? image().wrongChecksum : Bytes(30, 'x');
        const KvUInt32 transferId = begin(file, content.size());
        putBytes(transferId, 0, content);
        endWith(transferId, crcOf(content));
    }

    void write()
    {
        const unsigned char value = m_input.byte();
        const bool isGood = m_model.authority(m_host, m_id) == Status::Ok;
        if (isGood)
            m_model.write(m_id, value);
        same(inventory(3, Arguments().address(parameter).number(m_id).number(0x121).counted({&value, 1})), isGood);
    }

    void apply()
    {
        const bool isGood = m_model.authority(m_host, m_id) == Status::Ok;
        if (isGood)
            m_model.apply(m_id);
        same(inventory(6, atRoot()), isGood);
    }

    void update()
    {
        const KvUInt64 file = name();
        const auto found = m_model.files().find(file);
        const std::size_t size =
            (found == m_model.files().end() ? 0 : found->second.size()) + (m_input.byte() % 8 == 7 ? 1 : 0);
        const bool isGood = m_model.authority(m_host, m_id) == Status::Ok && m_model.beginUpdate(file, size);
        same(inventory(7, Arguments()
                              .address(firmware)
                              .number(m_id)
                              .text(std::string(Files::directoryName) + "/" + nameOf(file))
                              .number(0)
                              .longNumber(size)),
             isGood);
    }

    void finishUpdate()
    {
        const bool isGood = m_model.authority(m_host, m_id) == Status::Ok && m_model.finishUpdate();
        same(inventory(12, atRoot()), isGood);
    }

    void compareLocks()
    {
        Input results = access(10, Arguments());
        KV_FUZZ_CHECK(results.number(4) == Status::Ok);
        KV_FUZZ_CHECK(results.number(4) == m_model.locks().size());
        for (const SessionModel::Lock& lock : m_model.locks()) {
            KV_FUZZ_CHECK(results.number(4) == lock.level);
            results.bytes(8);
            KV_FUZZ_CHECK(results.number(4) == hosts[lock.host]);
            KV_FUZZ_CHECK(results.number(4) == (m_model.now() - lock.since) / 1000);
            KV_FUZZ_CHECK(results.number(4) == (lock.kept + 20000 - m_model.now() + 999) / 1000);
        }
    }

    void compareFiles()
    {
        Input results = access(11, Arguments());
        KV_FUZZ_CHECK(results.number(4) == Status::Ok);
        KV_FUZZ_CHECK(results.number(4) == m_model.files().size());
        for (const auto& [number, content] : m_model.files()) {
            results.bytes(12);  // the directory
            KV_FUZZ_CHECK(results.number(4) == 16 && results.text(16) == nameOf(number));
            KV_FUZZ_CHECK(results.number(4) == 0 && results.number(4) == content.size());
            results.bytes(8);
        }
    }

    void compareRest()
    {
        Input status = inventory(14, Arguments().address(firmware).number(0));
        KV_FUZZ_CHECK(status.number(4) == 0);
        KV_FUZZ_CHECK(status.number(4) == m_model.updateState());
        KV_FUZZ_CHECK(status.number(4) == m_model.updatePercent());
        status.number(4);
        KV_FUZZ_CHECK((status.number(4) != 0) == m_model.hasUpdateFailed());
        const Bytes value = bytesOfParameter(parameter);
        KV_FUZZ_CHECK(value[value.size() - 7] == m_model.value());
        const Bytes version = bytesOfParameter("HCN[4711]/FIRMWARE/VERSION");
        KV_FUZZ_CHECK(version[version.size() - 14] == (m_model.isUpdated() ? 4 : 3));
    }

    /** The parameter's record, whose value stands in front of an empty unit, the modifiable flag and the relevance. */
    Bytes bytesOfParameter(const char* address)
    {
        Input results = inventory(2, Arguments().address(address));
        KV_FUZZ_CHECK(results.number(4) == 0);
        const Bytes bytes = results.bytes(results.number(4));
        KV_FUZZ_CHECK(bytes.size() > 14);
        return bytes;
    }

    Input& m_input;
    BoardOnMemory m_board{{SessionModel::quota, SessionModel::mostFiles, SessionModel::mostNames}};
    SessionModel m_model{BoardOnMemory::firstAccessId, BoardOnMemory::firstName, image()};
    unsigned m_host = 0;
    KvUInt32 m_id = wrongId;
    KvUInt32 m_crc32 = 0;
    std::vector<KvUInt32> m_ids;
    Bytes m_results;
};

}  // namespace

int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    Input input(data, size);
    Session(input).run();
    return 0;
}
