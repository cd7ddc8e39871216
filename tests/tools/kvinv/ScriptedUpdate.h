#pragma once

#include <algorithm>
#include <cstdint>

#include "base/KvCBuffer.h"
#include "base/KvCVersion.h"
#include "inventory/KvCInventoryItemFactory.h"
#include "inventory/KvCInventoryParameter.h"
#include "inventory/ids/KvNInventoryIDs.h"
#include "tests/support/ScriptedBoards.h"
#include "tests/tools/kvinv/Program.h"

/** Updates by the command of a board that does what a test says, however wrong that is. */
namespace ScriptedUpdate {

using Bytes = ScriptedBoards::Bytes;

constexpr KvUInt32 idle = 0;
constexpr KvUInt32 running = 1;
constexpr KvUInt32 finished = 2;
constexpr KvUInt32 unknown = 9;

constexpr KvUInt32 accessId = 0x1234;

/** Procedures as they are told by their numbers: those of the device access service and, from 100 on, those of the
    inventory manager service. */
enum Called
{
    RequestAccess = 2,
    KeepAccess = 3,
    ReleaseAccess = 4,
    PutBegin = 5,
    PutData = 6,
    PutEnd = 7,
    PutAbort = 8,
    Delete = 9,
    ListFiles = 11,
    ReadParameter = 102,
    Update = 107,
    UpdateStatus = 108,
    UpdateErrors = 109,
    FileName = 110,
    Authority = 111,
    UpdateFinish = 112,
    Update2 = 113,
    UpdateStatus2 = 114,
    UpdateErrors2 = 115
};

/** An XDR record, field by field. */
class Record
{
public:
    Record& number(KvUInt32 value)
    {
        for (int shift = 24; shift >= 0; shift -= 8)
            m_bytes.push_back(static_cast<unsigned char>(value >> shift));
        return *this;
    }
    Record& wide(std::uint64_t value)
    {
        return number(static_cast<KvUInt32>(value >> 32)).number(static_cast<KvUInt32>(value));
    }
    Record& opaque(const Bytes& bytes)
    {
        number(static_cast<KvUInt32>(bytes.size()));
        m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
        while (m_bytes.size() % 4 != 0)
            m_bytes.push_back(0);
        return *this;
    }
    Record& text(const std::string& text) { return opaque(Bytes(text.begin(), text.end())); }
    Record& characters(const std::string& text)
    {
        number(static_cast<KvUInt32>(text.size()));
        for (const char c : text)
            number(static_cast<unsigned char>(c));
        return *this;
    }
    operator const Bytes&() const { return m_bytes; }

private:
    Bytes m_bytes;
};

/** An error list with one entry without arguments. */
inline Bytes errorBlock(KvUInt32 code)
{
    return Record().number(1).number(1).number(code).number(0).number(0).number(0).number(0);
}

inline Bytes result(KvUInt32 status, const Bytes& errors = {})
{
    return Record().number(status).opaque(errors);
}

inline Bytes status(KvUInt32 state, KvUInt32 percent, KvUInt32 step = 1)
{
    return Record().number(0).number(state).number(0).number(percent).number(step).opaque({});
}

inline Bytes status2(KvUInt32 state, KvUInt32 percent, KvUInt32 errors)
{
    return Record().number(0).number(state).number(percent).number(1).number(errors).opaque({});
}

/** The answer to readParameter with a version. */
inline Bytes versionAnswer(const char* version)
{
    KvCErrorListPool errors;
    const KvCInventoryParameter parameter(errors, KvNInventoryIDs::VERSION, "VERSION", KvCVersion(version), "", false,
                                          0);
    KvCBuffer buffer(errors);
    KvCInventoryItemFactory factory(errors);
    factory.serializeInventoryParameter(errors, &buffer, &parameter);
    EXPECT_EQ(errors.getErrorCount(), 0U);
    return Record().number(0).opaque(Bytes(buffer.getStartPointer(), buffer.getWritePointer())).opaque({});
}

class UpdateOfAScriptedBoard : public CommandTest
{
protected:
    void SetUp() override
    {
        CommandTest::SetUp();
        makeImage("4.0.1b2");
        board.answerDeviceAccess(RequestAccess, Record().number(0).number(accessId).number(20).text("").opaque({}));
        for (const KvUInt32 procedure : {KeepAccess, ReleaseAccess, PutEnd, PutAbort, Delete})
            board.answerDeviceAccess(procedure, result(0));
        board.answerDeviceAccess(PutBegin, Record().number(0).number(7).opaque({}));
        const auto size = static_cast<KvUInt32>(std::filesystem::file_size(path("fw.bin")));
        board.answerDeviceAccess(PutData, Record().number(0).number(0).number(size).opaque({}));
        board.answer(ReadParameter - 100, versionAnswer("3.1.2b4p7"));
        board.answer(FileName - 100, Record().number(0).characters("dir").characters("file").opaque({}));
        board.answer(Authority - 100, Record().number(0).number(1).opaque({}));
        for (const KvUInt32 procedure : {Update, Update2, UpdateErrors, UpdateFinish})
            board.answer(procedure - 100, result(0));
        board.answers(UpdateStatus - 100, {status(running, 0), status(running, 60), status(finished, 100)});
        boards.start();
    }

    void makeImage(const std::string& version)
    {
        put("fw.json",
            "{\"format\": \"korvel-inventory\", \"version\": 1, \"tree\": {\"id\": \"ROOT\", \"items\": [{\"id\": "
            "\"FIRMWARE\", \"parameters\": [{\"id\": \"VERSION\", \"type\": \"Version\", \"value\": \"" +
                version + "\"}]}]}}");
        ASSERT_EQ(kvinv({"import", path("fw.json"), "-o", path("fw.bin")}).status, 0);
    }
    std::vector<std::string> arguments(const std::vector<std::string>& more = {}) const
    {
        std::vector<std::string> all = {"update", "--ip", ScriptedBoards::quad(board.address), "HCN[4711]/FIRMWARE",
                                        path("fw.bin")};
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }
    Ended update(const std::vector<std::string>& more = {}, const Circumstances& circumstances = {}) const
    {
        return kvinv(arguments(more), circumstances);
    }
    /** The calls that change something or belong to an update, in their order; a status that is asked several times
        counts once. */
    std::vector<int> calls() const
    {
        std::vector<int> list;
        for (const ScriptedBoards::Call& call : board.calls(ScriptedBoards::DeviceAccessProgram)) {
            if (call.procedure != 1 && call.procedure != KeepAccess)
                list.push_back(static_cast<int>(call.procedure));
        }
        for (const ScriptedBoards::Call& call : board.calls()) {
            const int now = static_cast<int>(call.procedure) + 100;
            if (now < UpdateStatus || list.empty() || list.back() != now)
                list.push_back(now);
        }
        return list;
    }
    bool wasCalled(Called procedure) const
    {
        const std::vector<int> list = calls();
        return std::find(list.begin(), list.end(), procedure) != list.end();
    }
    /** What is told of versions, image and board. */
    std::string told() const
    {
        return "board: HCN[4711]/FIRMWARE has version 3.1.2b4p7\nimage: " + path("fw.bin") +
               " has version 4.0.1b2 (UserFirmware, " + std::to_string(std::filesystem::file_size(path("fw.bin"))) +
               " bytes)\n";
    }
    std::string transferring() const
    {
        return "kvinv: transferring " + path("fw.bin") + " (" +
               std::to_string(std::filesystem::file_size(path("fw.bin"))) + " bytes)\n";
    }
    /** The end that every update has that the board took up. */
    void expectWholeEnd(const Ended& ended) const
    {
        EXPECT_EQ(ended.status, 1);
        EXPECT_EQ(ended.out, told());
        EXPECT_TRUE(wasCalled(UpdateErrors));
        EXPECT_TRUE(wasCalled(UpdateFinish));
        EXPECT_TRUE(wasCalled(Delete));
        EXPECT_TRUE(wasCalled(ReleaseAccess));
    }

    ScriptedBoards boards;
    ScriptedBoards::Board& board = boards.add(4711);
};

}  // namespace ScriptedUpdate
