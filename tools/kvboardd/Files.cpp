#include "tools/kvboardd/Files.h"

#include <algorithm>
#include <utility>

#include "platform/service/Directory.h"

namespace KvNBoardService {

namespace {

using KvNService::FileProblem;

constexpr std::size_t digits = 16;
constexpr const char* digitCharacters = "0123456789abcdef";
constexpr std::string_view unfinishedSuffix = ".part";
constexpr int maximumNameTries = 100;

/** The number that a file name stands for; null when it is none of this pattern. */
std::optional<KvUInt64> numberOf(std::string_view fileName)
{
    if (fileName.size() != digits)
        return std::nullopt;
    KvUInt64 number = 0;
    for (const char character : fileName) {
        const std::size_t digit = std::string_view(digitCharacters).find(character);
        if (digit == std::string_view::npos)
            return std::nullopt;
        number = number << 4 | digit;
    }
    return number;
}

std::string nameOf(KvUInt64 number)
{
    std::string result(digits, '0');
    for (auto place = result.rbegin(); place != result.rend(); ++place, number >>= 4)
        *place = digitCharacters[number & 0xF];
    return result;
}

bool isFileName(std::string_view name)
{
    return numberOf(name).has_value();
}

bool isUnfinishedName(std::string_view name)
{
    return name.ends_with(unfinishedSuffix) && isFileName(name.substr(0, name.size() - unfinishedSuffix.size()));
}

Files::Outcome trouble(FileProblem& why, std::string& problem)
{
    problem = std::move(why.text);
    return why.kind == FileProblem::Kind::Full ? Files::Outcome::NoSpace : Files::Outcome::Io;
}

}  // namespace

Files::Files(std::unique_ptr<KvNService::Directory> folder, const Limits& limits, RandomSource random)
    : m_folder(std::move(folder)), m_limits(limits), m_random(std::move(random))
{
    // Nothing that happens later needs memory for what is remembered.
    m_handedOut.reserve(m_limits.names);
}

Files::~Files() = default;

Files::Outcome Files::removeUnfinished(std::string& problem)
{
    FileProblem why;
    std::vector<KvNService::Directory::Entry> left;
    if (!m_folder->list(isUnfinishedName, left, why))
        return trouble(why, problem);
    for (const KvNService::Directory::Entry& entry : left)
        if (!m_folder->remove(entry.name, why) && why.kind != FileProblem::Kind::Missing)
            return trouble(why, problem);
    return Outcome::Done;
}

Files::Outcome Files::generateName(std::string& directory, std::string& fileName)
{
    for (int i = 0; i < maximumNameTries; ++i) {
        const std::optional<KvUInt64> number = m_random();
        if (!number)
            return Outcome::NoRandom;
        std::string name = nameOf(*number);
        if (isHandedOut(*number) || m_folder->isTaken(name))
            continue;
        directory = directoryName;
        fileName = std::move(name);
        remember(*number);
        return Outcome::Done;
    }
    return Outcome::NoRandom;
}

bool Files::isHandedOut(KvUInt64 number) const
{
    return std::find(m_handedOut.begin(), m_handedOut.end(), number) != m_handedOut.end();
}

void Files::remember(KvUInt64 number) noexcept
{
    if (isHandedOut(number) || m_limits.names == 0)
        return;
    if (m_handedOut.size() < m_limits.names)
        return m_handedOut.push_back(number);
    m_handedOut[m_oldest] = number;
    m_oldest = (m_oldest + 1) % m_handedOut.size();
}

Files::Outcome Files::find(std::string_view directory, std::string_view fileName, Place& place,
                           std::string& problem) const
{
    const std::optional<KvUInt64> number = numberOf(fileName);
    if (directory != directoryName || !number)
        return Outcome::BadName;
    place.number = *number;
    place.name = fileName;
    FileProblem why;
    place.exists = m_folder->hasFile(place.name, why);
    if (!place.exists && why.kind != FileProblem::Kind::Missing)
        return trouble(why, problem);
    return place.exists || isHandedOut(*number) ? Outcome::Done : Outcome::BadName;
}

Files::Outcome Files::findPath(std::string_view remotePath, Place& place, std::string& problem) const
{
    const std::size_t slash = remotePath.find('/');
    if (slash == std::string_view::npos)
        return Outcome::BadName;
    return find(remotePath.substr(0, slash), remotePath.substr(slash + 1), place, problem);
}

Files::Outcome Files::open(std::string_view remotePath, std::unique_ptr<KvNService::ReadFile>& file,
                           std::string& problem) const
{
    Place place;
    const Outcome outcome = findPath(remotePath, place, problem);
    if (outcome != Outcome::Done)
        return outcome;
    FileProblem why;
    file = m_folder->openFile(place.name, why);
    if (file != nullptr)
        return Outcome::Done;
    return why.kind == FileProblem::Kind::Missing ? Outcome::NotFound : trouble(why, problem);
}

bool Files::isBusy(KvUInt64 number) const
{
    return std::find(m_busy.begin(), m_busy.end(), number) != m_busy.end();
}

Files::Outcome Files::setBusy(std::string_view remotePath, bool on)
{
    const std::size_t slash = remotePath.find('/');
    const std::optional<KvUInt64> number =
        slash == std::string_view::npos ? std::nullopt : numberOf(remotePath.substr(slash + 1));
    if (!number || remotePath.substr(0, slash) != directoryName)
        return Outcome::BadName;
    if (!on)
        std::erase(m_busy, *number);
    else if (!isBusy(*number))
        m_busy.push_back(*number);
    return Outcome::Done;
}

Files::Outcome Files::remove(std::string_view directory, std::string_view fileName, std::string& problem,
                             std::shared_ptr<KvNService::ReadFile>* deleted)
{
    Place place;
    const Outcome outcome = find(directory, fileName, place, problem);
    if (outcome != Outcome::Done)
        return outcome;
    if (isBusy(place.number))
        return Outcome::Busy;
    FileProblem why;
    if (deleted != nullptr)
        *deleted = m_folder->openFile(place.name, why);
    if (!m_folder->remove(place.name, why))
        return why.kind == FileProblem::Kind::Missing ? Outcome::NotFound : trouble(why, problem);
    // Whoever asks again because the answer was lost is told that the file is not there.
    remember(place.number);
    return Outcome::Done;
}

Files::Outcome Files::measure(std::vector<Entry>& entries, Room& room, std::string& problem) const
{
    entries.clear();
    FileProblem why;
    std::vector<KvNService::Directory::Entry> found;
    if (!m_folder->list(isFileName, found, why) || !m_folder->freeBytes(room.onDisk, why))
        return trouble(why, problem);
    KvUInt64 left = m_limits.bytes - std::min(m_limits.bytes, m_reserved);
    entries.reserve(found.size());
    for (KvNService::Directory::Entry& entry : found) {
        left -= std::min(left, entry.size);
        entries.push_back({std::move(entry.name), entry.size, entry.modified});
    }
    room.inQuota = left;
    return Outcome::Done;
}

Files::Outcome Files::list(std::vector<Entry>& entries, KvUInt64& freeBytes, std::string& problem) const
{
    Room room;
    const Outcome outcome = measure(entries, room, problem);
    std::sort(entries.begin(), entries.end(),
              [](const Entry& left, const Entry& right) { return left.fileName < right.fileName; });
    freeBytes = std::min(room.inQuota, room.onDisk);
    return outcome;
}

Files::Outcome Files::begin(std::string_view directory, std::string_view fileName, KvUInt64 size,
                            std::shared_ptr<KvNService::UnfinishedFile>& file, std::string& problem)
{
    Place place;
    Outcome outcome = find(directory, fileName, place, problem);
    if (outcome != Outcome::Done)
        return outcome;
    if (isBusy(place.number))
        return Outcome::Busy;
    std::vector<Entry> entries;
    Room room;
    outcome = measure(entries, room, problem);
    if (outcome != Outcome::Done)
        return outcome;
    if (!place.exists && entries.size() >= m_limits.files)
        return Outcome::TooMany;
    if (size > room.inQuota || size > room.onDisk) {
        problem = size > room.inQuota ? std::to_string(room.inQuota) + " bytes of the files' share are free"
                                      : std::to_string(room.onDisk) + " bytes of the disk are free";
        return Outcome::NoSpace;
    }
    FileProblem why;
    file = m_folder->beginFile(place.name + std::string(unfinishedSuffix), place.name, why);
    if (file == nullptr)
        return trouble(why, problem);
    m_reserved = size;
    return Outcome::Done;
}

Files::Outcome Files::commit(KvNService::UnfinishedFile& file, std::string_view fileName, std::string& problem)
{
    const std::optional<KvUInt64> number = numberOf(fileName);
    if (number && isBusy(*number))
        return Outcome::Busy;
    FileProblem why;
    return file.commit(why) ? Outcome::Done : trouble(why, problem);
}

}  // namespace KvNBoardService
