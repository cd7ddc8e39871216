#include <string>
#include <vector>

#include "platform/dal/DeviceAccessRecords.h"
#include "tests/platform/dal/DalTest.h"
#include "tests/platform/dal/FileTransferFixture.h"
#include "tests/support/RpcBytes.h"

using namespace KvNDeviceAccess;
using RpcBytes::operator+;
using RpcBytes::units;
using testing::ElementsAre;
using testing::IsEmpty;
using Bytes = std::vector<unsigned char>;

namespace {

using BoardFiles = FileTransfer;

/* A text as it travels. */
Bytes wire(const std::string& text)
{
    Bytes bytes = units({static_cast<KvUInt32>(text.size())});
    bytes.insert(bytes.end(), text.begin(), text.end());
    while (bytes.size() % 4 != 0)
        bytes.push_back(0);
    return bytes;
}

/* The answer that lists `count` files called "0", "1", … of 2^32 + i bytes, and 7 * 2^32 + 9 free bytes. */
Bytes listOf(KvUInt32 count, const std::string& directory = "d", const std::string& suffix = "")
{
    Bytes bytes = units({0, count});
    for (KvUInt32 i = 0; i < count; ++i) {
        for (const Bytes& part : {wire(directory), wire(std::to_string(i) + suffix), units({1, i, 0, 1700000000})})
            bytes.insert(bytes.end(), part.begin(), part.end());
    }
    return bytes + units({7, 9, 0});
}

}  // namespace

TEST_F(BoardFiles, areDeletedByTheirName)
{
    rack.with(0, [](ScriptedBoard& board) { board.files.stored["dir/image"] = "x"; });
    EXPECT_EQ(KvDAL_deleteFile(errors, nullptr, transfer, "dir", "image"), 0);
    EXPECT_THAT(look().stored, IsEmpty());
    EXPECT_THAT(look().procedures(), ElementsAre(9));
    EXPECT_EQ(look().calls[0].arguments, units({77, 3, 0x64697200, 5, 0x696D6167, 0x65000000}));
    EXPECT_EQ(KvDAL_deleteFile(errors, nullptr, transfer, "", "image"), BoardNotFound);
    EXPECT_EQ(look().calls[1].arguments, units({77, 0, 5, 0x696D6167, 0x65000000}));
    EXPECT_THAT(codes(errors), ElementsAre(0x200805));
    EXPECT_STREQ(errors.getErrorOrigin(0), "KvDAL_deleteFile");
}

TEST_F(BoardFiles, areNotDeletedWhenTheBoardRefuses)
{
    for (const KvUInt32 status : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 11u, 12u, 77u}) {
        fresh({{{Delete, 0}, answer(units({status, 0}))}});
        const KvInt32 known = status <= 12 ? static_cast<KvInt32>(status) : 0;
        EXPECT_EQ(KvDAL_deleteFile(errors, nullptr, transfer, "dir", "image"), 100 + known);
        EXPECT_THAT(codes(errors), ElementsAre(0x200800u + static_cast<KvUInt32>(known)));
    }
    fresh({{{Delete, 0}, answer({1, 2, 3})}});
    EXPECT_EQ(KvDAL_deleteFile(errors, nullptr, transfer, "dir", "image"), ConnectionFailed);
    EXPECT_EQ(errors.getErrorCount(), 2u);
}

TEST_F(BoardFiles, areDeletedOnceWhenTheReplyToThatGetsLost)
{
    for (const auto kind : {ScriptedFault::Kind::LoseCall, ScriptedFault::Kind::LoseReply}) {
        fresh({{{Delete, 1}, {kind, {}}}});
        rack.with(0, [](ScriptedBoard& board) { board.files.stored["dir/image"] = "x"; });
        EXPECT_EQ(KvDAL_deleteFile(errors, nullptr, transfer, "dir", "image"), 0);
        EXPECT_THAT(look().stored, IsEmpty());
        EXPECT_EQ(look().calls.size(), 2u);
        EXPECT_EQ(errors.getErrorCount(), 0u);
    }
    fresh({{{Delete, 0}, {ScriptedFault::Kind::LoseCall, {}}}});
    EXPECT_EQ(KvDAL_deleteFile(errors, nullptr, transfer, "dir", "image"), ConnectionFailed);
    EXPECT_EQ(look().calls.size(), 2u);
}

TEST_F(BoardFiles, areListedWithSizeAndTime)
{
    fresh({{{ListFiles, 0}, answer(listOf(2))}});
    KvDALSFile files[3] = {};
    KvUInt32 count = 3;
    KvUInt64 freeBytes = 0;
    ASSERT_EQ(KvDAL_listFiles(errors, device.handle, files, &count, &freeBytes), 0);
    EXPECT_THAT(look().procedures(), ElementsAre(11));
    EXPECT_THAT(look().calls[0].arguments, IsEmpty());
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(freeBytes, 30064771081u);
    EXPECT_STREQ(files[1].directory, "d");
    EXPECT_STREQ(files[1].fileName, "1");
    EXPECT_EQ(files[1].size, 4294967297u);
    EXPECT_EQ(files[1].modified, 1700000000u);
    EXPECT_STREQ(files[2].fileName, "");
    EXPECT_EQ(KvDAL_listFiles(errors, device.handle, files, &(count = 2), nullptr), 0);
    // without a lock as well
    KvDAL_deleteAccessRestrictionHandle(errors, lock);
    EXPECT_EQ(KvDAL_listFiles(errors, device.handle, files, &(count = 3), nullptr), 0);
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST_F(BoardFiles, mayBe4096WithTheLongestNamesAndNotOneMore)
{
    const std::string directory(100, 'd');
    fresh({{{ListFiles, 0}, answer(listOf(4096, directory, std::string(150, 'n')))}});
    std::vector<KvDALSFile> files(4096);
    KvUInt32 count = 4096;
    ASSERT_EQ(KvDAL_listFiles(errors, device.handle, files.data(), &count, nullptr), 0);
    EXPECT_EQ(count, 4096u);
    EXPECT_EQ(files[4095].directory, directory);
    EXPECT_EQ(files[4095].fileName, "4095" + std::string(150, 'n'));
    EXPECT_EQ(files[4095].size, 4294971391u);

    fresh({{{ListFiles, 0}, answer(listOf(1, std::string(255, 'd'), std::string(254, 'n')))}});
    ASSERT_EQ(KvDAL_listFiles(errors, device.handle, files.data(), &(count = 1), nullptr), 0);
    EXPECT_EQ(files[0].directory, std::string(255, 'd'));

    for (const Bytes& tooMuch : {listOf(4097), listOf(1, std::string(256, 'd')), units({0, 0xFFFFFFFF})}) {
        fresh({{{ListFiles, 0}, answer(tooMuch)}});
        EXPECT_EQ(KvDAL_listFiles(errors, device.handle, files.data(), &(count = 4096), nullptr), ConnectionFailed);
        EXPECT_EQ(count, 4096u);
        ASSERT_EQ(errors.getErrorCount(), 2u);
        EXPECT_EQ(errors.getErrorCode(1), 0x20000Cu);
    }
}

TEST_F(BoardFiles, listSaysHowMuchRoomItNeeds)
{
    fresh({{{ListFiles, 0}, answer(listOf(3))}});
    KvDALSFile files[2] = {};
    KvUInt32 count = 2;
    KvUInt64 freeBytes = 0;
    EXPECT_EQ(KvDAL_listFiles(errors, device.handle, files, &count, &freeBytes), ListTooSmall);
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(freeBytes, 30064771081u);
    EXPECT_STREQ(files[0].fileName, "");
    EXPECT_THAT(codes(errors), ElementsAre(0x200015));
    EXPECT_EQ(KvDAL_listFiles(errors, device.handle, nullptr, &(count = 0), nullptr), ListTooSmall);
    fresh({{{ListFiles, 0}, answer(listOf(0))}});
    EXPECT_EQ(KvDAL_listFiles(errors, device.handle, nullptr, &(count = 0), nullptr), 0);
    EXPECT_EQ(KvDAL_listFiles(errors, device.handle, nullptr, &(count = 1), nullptr), InvalidArgument);
    EXPECT_EQ(KvDAL_listFiles(errors, device.handle, nullptr, nullptr, nullptr), InvalidArgument);
    EXPECT_EQ(KvDAL_listFiles(errors, transfer, nullptr, &(count = 0), nullptr), InvalidHandle);
    EXPECT_EQ(KvDAL_listFiles(errors, nullptr, nullptr, &count, nullptr), InvalidHandle);
}

TEST_F(BoardFiles, listThatTheBoardRefusesIsReported)
{
    fresh({{{ListFiles, 0}, answer(units({10, 0, 0, 0, 0}))}});
    KvUInt32 count = 0;
    EXPECT_EQ(KvDAL_listFiles(errors, device.handle, nullptr, &count, nullptr), BoardIo);
    EXPECT_THAT(codes(errors), ElementsAre(0x20080A));
}

TEST(DeviceAccessProcedures, haveNamesForPeople)
{
    EXPECT_STREQ(procedureName(1), "Identify");
    EXPECT_STREQ(procedureName(PutBegin), "PutBegin");
    EXPECT_STREQ(procedureName(11), "ListFiles");
    EXPECT_EQ(procedureName(0), nullptr);
    EXPECT_EQ(procedureName(12), nullptr);
}
