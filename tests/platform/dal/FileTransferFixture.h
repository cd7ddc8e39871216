#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/platform/dal/DalTest.h"
#include "tests/platform/dal/LocalFiles.h"

using ScriptedFaults = std::map<std::pair<KvUInt32, int>, ScriptedFault>;

/** The fault of an answer in these bytes. */
inline ScriptedFault answer(const std::vector<unsigned char>& bytes)
{
    return {ScriptedFault::Kind::Answer, bytes};
}

/** A board that takes 8 bytes at a time, the access id 77 in force on it, and a transfer handle. */
class FileTransfer : public testing::Test
{
protected:
    static constexpr KvUInt32 address = ip(127, 0, 50, 60);
    /** Of "0123456789ABCDEF01234". */
    static constexpr KvUInt32 checksumOf21 = 0xFC962BBE;

    FileTransfer() : rack({chunkBoard()}), device(address, 5)
    {
        EXPECT_EQ(KvDAL_adoptAccessRestriction(errors, device.handle, 77, &lock), 0);
        EXPECT_EQ(KvDAL_createFTClientHandle(errors, device.handle, &transfer), 0);
    }
    ~FileTransfer() override
    {
        KvCErrorListPool unused;
        KvDAL_deleteFTClientHandle(unused, transfer);
        KvDAL_deleteAccessRestrictionHandle(unused, lock);
    }

    static ScriptedBoard chunkBoard()
    {
        ScriptedBoard board = boardAt(address, 5);
        board.maxChunk = 8;
        return board;
    }
    /** A board without files and calls, with these faults, and no errors. */
    void fresh(const ScriptedFaults& faults)
    {
        rack.with(0, [&](ScriptedBoard& board) {
            board.files = ScriptedFiles();
            board.files.faults = faults;
        });
        errors.clear();
        told.clear();
    }
    ScriptedFiles look() { return rack.look(0).files; }

    KvInt32 put(const std::string& content, const std::string& directory = "dir", const std::string& fileName = "image")
    {
        return putPath(folder.file("local", content), directory, fileName);
    }
    KvInt32 putPath(const std::wstring& path, const std::string& directory = "dir",
                    const std::string& fileName = "image")
    {
        return KvDAL_putFileU(errors, nullptr, transfer, path.c_str(), directory.c_str(), fileName.c_str(),
                              &FileTransfer::progress, this);
    }

    Folder folder;
    ScriptedRack rack;
    Device device;
    KvCErrorListPool errors;
    void* lock = nullptr;
    void* transfer = nullptr;
    std::vector<unsigned> told;
    std::function<void(unsigned)> onProgress;

private:
    static void progress(unsigned thousandths, void* context)
    {
        auto* self = static_cast<FileTransfer*>(context);
        self->told.push_back(thousandths);
        if (self->onProgress)
            self->onProgress(thousandths);
    }
};
