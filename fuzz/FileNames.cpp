#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <set>
#include <string>

#include "fuzz/Fuzz.h"
#include "platform/service/Directory.h"
#include "platform/service/OpenBeneath.h"
#include "platform/service/TemporaryFolder.h"
#include "tools/kvboardd/Files.h"

/*
 * Names of files as callers send them: whatever a name says, nothing outside the folder is opened, made or removed, and
 * only names that the board handed out mean a file at all. The first line is the directory, the second the name.
 */

using namespace KvNFuzz;
using KvNBoardService::Files;

namespace {

constexpr const char* handedOut = "00000000000000aa";

/** A folder with a file, a folder and a pipe in it, a file beside it, and links that lead there. */
class Place
{
public:
    Place() : m_folder(KvNService::TemporaryFolder::make("kvinventory-fuzz-", m_problem))
    {
        KV_FUZZ_CHECK(m_folder != nullptr);
        const std::string path = m_folder->path();
        make("secret", "outside");
        KV_FUZZ_CHECK(mkdir(inside().c_str(), 0700) == 0 && mkdir((inside() + "/sub").c_str(), 0700) == 0);
        make("inside/file", "inside");
        make("inside/sub/file", "inside");
        KV_FUZZ_CHECK(symlink("../secret", (inside() + "/link").c_str()) == 0);
        KV_FUZZ_CHECK(symlink("..", (inside() + "/up").c_str()) == 0);
        KV_FUZZ_CHECK(mkfifo((inside() + "/pipe").c_str(), 0600) == 0);
        m_descriptor = open(inside().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        KV_FUZZ_CHECK(m_descriptor >= 0);
        for (const char* name : {"/file", "/sub", "/pipe"})
            m_known.insert(numberOf((inside() + name).c_str()));
    }
    ~Place() { close(m_descriptor); }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    std::string inside() const { return m_folder->path() + "/inside"; }
    int descriptor() const { return m_descriptor; }
    bool knows(int file) const
    {
        struct stat status = {};
        return fstat(file, &status) == 0 && m_known.count(status.st_ino) != 0;
    }
    /** Nothing beside the folder was touched. */
    void checkOutside() const
    {
        struct stat status = {};
        KV_FUZZ_CHECK(stat((m_folder->path() + "/secret").c_str(), &status) == 0 && status.st_size == 7);
        KV_FUZZ_CHECK(stat(m_folder->path().c_str(), &status) == 0 && status.st_nlink == 3);
    }

private:
    static ino_t numberOf(const char* path)
    {
        struct stat status = {};
        KV_FUZZ_CHECK(stat(path, &status) == 0);
        return status.st_ino;
    }
    void make(const char* name, std::string_view content) const
    {
        const int file = open((m_folder->path() + "/" + name).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        KV_FUZZ_CHECK(write(file, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
        close(file);
    }

    std::string m_problem;
    std::unique_ptr<KvNService::TemporaryFolder> m_folder;
    int m_descriptor = -1;
    std::set<ino_t> m_known;
};

void openName(const Place& place, const std::string& name)
{
    // As far as the system sees it.
    const std::string plain = name.c_str();
    const bool isPlain = !plain.empty() && plain.find('/') == std::string::npos && plain != "." && plain != "..";
    KV_FUZZ_CHECK(KvNService::isPlainName(name.c_str()) == isPlain);
    for (const auto call : {KvNService::OpenCall::Openat2, KvNService::OpenCall::Openat}) {
        const int file = KvNService::openBeneath(place.descriptor(), name.c_str(), O_RDONLY, 0, call);
        if (file < 0)
            continue;
        KV_FUZZ_CHECK(isPlain && place.knows(file));
        close(file);
    }
}

void useFiles(const Place& place, const std::string& directory, const std::string& name)
{
    std::string problem;
    auto folder = KvNService::Directory::open(place.inside(), problem);
    KV_FUZZ_CHECK(folder != nullptr);
    Files files(std::move(folder), {}, [] { return std::optional<KvUInt64>(0xAA); });
    std::string made;
    std::string madeName;
    KV_FUZZ_CHECK(files.generateName(made, madeName) == Files::Outcome::Done && madeName == handedOut);

    const bool isKnown = directory == Files::directoryName && name == handedOut;
    const std::string path = directory + "/" + name;
    const Files::Outcome none = isKnown ? Files::Outcome::NotFound : Files::Outcome::BadName;
    std::unique_ptr<KvNService::ReadFile> file;
    const bool isKnownPath = path == std::string(Files::directoryName) + "/" + handedOut;
    KV_FUZZ_CHECK(files.open(path, file, problem) ==
                  (isKnownPath ? Files::Outcome::NotFound : Files::Outcome::BadName));
    KV_FUZZ_CHECK(files.remove(directory, name, problem) == none);
    std::shared_ptr<KvNService::UnfinishedFile> unfinished;
    KV_FUZZ_CHECK(files.begin(directory, name, 3, unfinished, problem) ==
                  (isKnown ? Files::Outcome::Done : Files::Outcome::BadName));
    KV_FUZZ_CHECK((unfinished != nullptr) == isKnown);
    std::vector<Files::Entry> entries;
    KvUInt64 freeBytes = 0;
    KV_FUZZ_CHECK(files.list(entries, freeBytes, problem) == Files::Outcome::Done && entries.empty());
}

}  // namespace

int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static const Place place;
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::size_t line = text.find('\n');
    const std::string directory = text.substr(0, line);
    const std::string name = line == std::string::npos ? std::string() : text.substr(line + 1);
    openName(place, text);
    openName(place, name);
    useFiles(place, directory, name);
    place.checkOutside();
    return 0;
}
