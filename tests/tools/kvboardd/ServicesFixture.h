#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "SampleBoard.h"
#include "TemporaryFolder.h"
#include "WireBytes.h"
#include "platform/service/Directory.h"
#include "tools/kvboardd/DeviceAccessService.h"
#include "tools/kvboardd/Files.h"
#include "tools/kvboardd/InventoryService.h"
#include "tools/kvboardd/Transfers.h"
#include "tools/kvboardd/Update.h"

using namespace KvNBoardService;
using namespace std::chrono_literals;

inline constexpr KvUInt32 here = 0x7F000001;
inline constexpr KvUInt32 there = 0x0A000002;
inline constexpr KvUInt32 hcn = 380;

enum Status : KvUInt32
{
    Ok,
    Locked,
    BadAccess,
    BadArgument,
    Limit = 12
};

/** The services of the sample board on memory, with a clock of the test's. */
class ServicesFixture : public testing::Test
{
protected:
    Answer access(KvUInt32 procedure, const Bytes& arguments = {}, KvUInt32 peer = here, bool datagram = false)
    {
        Call call;
        call.procedure = procedure;
        call.peer = peer;
        call.datagram = datagram;
        call.arguments = arguments;
        return m_access.call(call);
    }
    Answer inventory(KvUInt32 procedure, const Bytes& arguments = {}, KvUInt32 peer = here)
    {
        Call call;
        call.procedure = procedure;
        call.peer = peer;
        call.arguments = arguments;
        return m_inventory.call(call);
    }
    /** Takes a lock; 0 when it is refused. */
    KvUInt32 lock(KvUInt32 level, KvUInt32 peer = here)
    {
        const Answer answer = access(2, words({level, 0, 0, ++m_nonce}) + counted("ann@pc (test)"), peer);
        WireReader reader(answer.results);
        return reader.word() == Ok ? reader.word() : 0;
    }
    Bytes address(const char* text)
    {
        const KvCInventoryAddress parsed = at(text);
        Bytes result = words({parsed.getLength(), 2 * parsed.getLength()});
        for (KvUInt32 i = 0; i < parsed.getLength(); ++i)
            result = result + words({parsed.getCategoryAt(i), parsed.getIndexAt(i)});
        return result;
    }
    /** Writes a byte to TEST_UI8; the status. */
    KvUInt32 write(KvUInt32 accessId, char value, KvUInt32 peer = here)
    {
        const Bytes arguments =
            address("HCN[4711]/TEST/TEST_UI8") + words({accessId, 0x121}) + counted(std::string_view(&value, 1));
        return take(inventory(3, arguments, peer));
    }
    KvUInt32 apply(KvUInt32 accessId, KvUInt32 peer = here)
    {
        return take(inventory(6, address("HCN[4711]") + words({accessId}), peer));
    }
    /** Whether an access id has a right: the answer's boolean; its status is in m_status. */
    KvUInt32 isAllowed(KvUInt32 accessId, KvUInt32 right, const Bytes& where, KvUInt32 peer = here)
    {
        const Answer answer = inventory(11, where + words({accessId, right}), peer);
        EXPECT_EQ(answer.kind, Answer::Kind::Success);
        m_slow = answer.slow;
        WireReader reader(answer.results);
        m_status = reader.word();
        const KvUInt32 allowed = reader.word();
        takeErrors(reader);
        return allowed;
    }
    /** Reads a result that is a status and an error list; the codes are in m_codes. */
    KvUInt32 take(const Answer& answer)
    {
        EXPECT_EQ(answer.kind, Answer::Kind::Success);
        m_slow = answer.slow;
        WireReader reader(answer.results);
        const KvUInt32 status = reader.word();
        takeErrors(reader);
        return status;
    }
    void takeErrors(WireReader& reader)
    {
        const std::string block = reader.counted();
        EXPECT_TRUE(reader.isDone());
        m_errors.clear();
        EXPECT_TRUE(m_errors.deSerialize(reinterpret_cast<const unsigned char*>(block.data()), block.size()));
        m_codes = codes(m_errors);
    }
    unsigned char current()
    {
        KvCErrorListPool errors;
        return m_board->tree().getValue<unsigned char>(errors, at("TEST/TEST_UI8"));
    }

    using Codes = std::vector<KvUInt32>;

    std::unique_ptr<Board> m_board = sampleBoard();
    LockTable::Time m_now{1000s};
    KvUInt32 m_nextId = 100;
    KvUInt32 m_nonce = 0;
    TemporaryFolder m_folder;
    std::string m_problem;
    KvUInt64 m_nextName = 0xABCDEF0123456700u;
    Files m_files{KvNService::Directory::open(m_folder.path(), m_problem), {}, [this] {
                      return std::optional<KvUInt64>(m_nextName++);
                  }};
    Transfers m_transfers{m_files, {}, [](const auto& work, const auto& finished) {
                              work();
                              finished();
                          }};
    LockTable m_locks{{},
                      [this] { return std::optional<KvUInt32>(m_nextId++); },
                      [this](KvUInt32 accessId, LockTable::End) {
                          m_board->dropWritten(accessId);
                          m_transfers.lockEnded(accessId);
                      }};
    Update m_update{*m_board, 10s};
    InventoryService m_inventory{{*m_board, m_locks, m_update, m_files}, [this] { return m_now; }};
    DeviceAccessService m_access{
        *m_board, m_locks, m_files, m_transfers, [this] { return m_now; }, {0x0102030405060708u, 65536}};
    KvCErrorListPool m_errors;
    Codes m_codes;
    KvUInt32 m_status = 0;
    bool m_slow = false;
};
