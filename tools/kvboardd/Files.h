#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/KvTypes.h"

namespace KvNService {
class Directory;
class ReadFile;
class UnfinishedFile;
}  // namespace KvNService

namespace KvNBoardService {

/**
 * The files put on one board. Each has a name that the board handed out: the directory "transfer" and 16 hexadecimal
 * digits from the random source, which say nothing. Such a name is good while the file exists, and before and after
 * that as long as it is among the last that were handed out; every other name is refused before the system sees it.
 * On the disk the files stand in one folder, which is opened once. What else stands there is not looked at.
 * Operations may throw std::bad_alloc, and then have changed nothing.
 */
class Files
{
public:
    enum class Outcome
    {
        Done,
        BadName,   ///< not a name that this board handed out
        NotFound,  ///< such a name, but no file (any more)
        Busy,      ///< an update of the file is running
        NoSpace,
        TooMany,
        NoRandom,  ///< the source gave no usable number
        Io,
        // of a transfer
        NoTransfer,
        OutOfOrder,  ///< a gap, or bytes of which the board has only some
        OtherData,   ///< bytes that the board has, but with other contents
        ChunkTooLarge,
        TooMuchData,  ///< more than was announced
        Incomplete,   ///< less than was announced
        OtherChecksum
    };

    struct Limits
    {
        KvUInt64 bytes = KvUInt64(1) << 30;  ///< of all files together
        std::size_t files = 4096;
        std::size_t names = 256;  ///< handed out, without a file, and remembered
    };

    /** Gives random numbers; null when there is none to be had. */
    using RandomSource = std::function<std::optional<KvUInt64>()>;

    struct Entry
    {
        std::string fileName;  ///< in the directory `directoryName`
        KvUInt64 size = 0;
        KvUInt64 modified = 0;  ///< seconds since 1970-01-01 UTC
    };

    /** The directory of every name handed out. */
    static constexpr const char* directoryName = "transfer";

    /** Owns `folder`, in which nobody else makes files. */
    Files(std::unique_ptr<KvNService::Directory> folder, const Limits& limits, RandomSource random);
    ~Files();

    /** Removes what a service that was killed left unfinished; Done or Io. */
    Outcome removeUnfinished(std::string& problem);

    /** Hands out a new name: Done or NoRandom. */
    Outcome generateName(std::string& directory, std::string& fileName);

    /** Opens a file by its path, `directory` + "/" + `fileName`: Done, BadName, NotFound or Io, then with what the
        system said in `problem`. What was opened can be read to its end, on any thread, whatever becomes of the name.
     */
    Outcome open(std::string_view remotePath, std::unique_ptr<KvNService::ReadFile>& file, std::string& problem) const;

    /** While a file is busy it is neither replaced nor deleted. Done or BadName; releasing never fails. */
    Outcome setBusy(std::string_view remotePath, bool on);

    /** Deletes a file: Done, BadName, NotFound, Busy or Io. What is given in `deleted` has it open still: it takes time
        to give back the space of a large file, and that is spent when this is destroyed. */
    Outcome remove(std::string_view directory, std::string_view fileName, std::string& problem,
                   std::shared_ptr<KvNService::ReadFile>* deleted = nullptr);

    /** All files, by name, and how many bytes more there is room for: Done or Io. */
    Outcome list(std::vector<Entry>& entries, KvUInt64& freeBytes, std::string& problem) const;

    /** Begins a file of `size` bytes that is to be put under a name: Done, BadName, Busy, TooMany, NoSpace or Io. The
        room for it is set aside until release(); what it replaces takes room until it is committed. */
    Outcome begin(std::string_view directory, std::string_view fileName, KvUInt64 size,
                  std::shared_ptr<KvNService::UnfinishedFile>& file, std::string& problem);

    /** Gives the unfinished file its name, `fileName` as it was begun: Done, Busy, NoSpace or Io. */
    Outcome commit(KvNService::UnfinishedFile& file, std::string_view fileName, std::string& problem);

    /** The room that begin() has set aside is free again. */
    void release() noexcept { m_reserved = 0; }

    const Limits& limits() const { return m_limits; }

private:
    struct Place
    {
        KvUInt64 number = 0;  ///< what the name stands for
        std::string name;
        bool exists = false;
    };

    struct Room
    {
        KvUInt64 inQuota = 0;
        KvUInt64 onDisk = 0;
    };

    Outcome find(std::string_view directory, std::string_view fileName, Place& place, std::string& problem) const;
    Outcome findPath(std::string_view remotePath, Place& place, std::string& problem) const;
    Outcome measure(std::vector<Entry>& entries, Room& room, std::string& problem) const;
    bool isHandedOut(KvUInt64 number) const;
    void remember(KvUInt64 number) noexcept;
    bool isBusy(KvUInt64 number) const;

    std::unique_ptr<KvNService::Directory> m_folder;
    Limits m_limits;
    RandomSource m_random;
    std::vector<KvUInt64> m_handedOut;  ///< as a ring
    std::size_t m_oldest = 0;
    std::vector<KvUInt64> m_busy;
    KvUInt64 m_reserved = 0;
};

}  // namespace KvNBoardService
