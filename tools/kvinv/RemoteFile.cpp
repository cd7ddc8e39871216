#include "tools/kvinv/RemoteFile.h"

#include <algorithm>
#include <filesystem>
#include <new>

#include "platform/files/KvNFiles.h"
#include "platform/oncrpc/KvCRpcClient.h"
#include "tools/common/JsonEvents.h"
#include "tools/kvinv/Interruption.h"
#include "tools/kvinv/TreeFile.h"

namespace RemoteFile {

namespace {

constexpr unsigned wholeFile = 1000;

/** The part of a bar that a transfer has. */
struct Share
{
    Progress& progress;
    unsigned thousandths;
};

/** The name as wide characters, whatever the locale; false when it is none on this host. */
bool wideName(const std::string& path, std::wstring& wide)
{
    if constexpr (sizeof(wchar_t) == sizeof(char32_t)) {
        if (!KvNJson::isUtf8(path))
            return false;
        const std::u32string characters = std::filesystem::path(path).u32string();
        wide.assign(characters.begin(), characters.end());
    } else {
        wide = std::filesystem::path(path).wstring();
    }
    return true;
}

void advance(unsigned int thousandths, void* context)
{
    // An interruption between two calls has cancelled none of them.
    if (Interruption::happened())
        KvCRpcClient::cancelAll();
    const Share& share = *static_cast<Share*>(context);
    try {
        share.progress.reach(std::min(thousandths, wholeFile) * share.thousandths / wholeFile);
    } catch (const std::bad_alloc&) {
        // The library is not to be left this way, and a bar that stands still does no harm.
    }
}

}  // namespace

std::string pathOf(const std::string& directory, const std::string& fileName)
{
    return directory.empty() ? fileName : directory + "/" + fileName;
}

std::string pathOf(const Name& name)
{
    return pathOf(name.directory.c_str(), name.fileName.c_str());
}

bool nameOf(const std::string& path, Name& name)
{
    const std::size_t slash = path.rfind('/');
    name.directory = slash == std::string::npos ? "" : path.substr(0, slash).c_str();
    name.fileName = slash == std::string::npos ? path.c_str() : path.substr(slash + 1).c_str();
    return *name.fileName.c_str() != '\0';
}

bool find(const std::string& path, Local& file, Console& console)
{
    KvNFiles::Reader reader;
    char byte = 0;
    if (path != "-" && reader.open(path) && TreeFile::isRegular(path))
        reader.read(&byte, 1);
    if (!reader.problem().empty()) {
        console.problem(reader.problem());
        return false;
    }
    if (!TreeFile::isRegular(path)) {
        console.problem(TreeFile::shownName(path) + ": only a regular file can be put on a board");
        return false;
    }
    if (!wideName(path, file.wide)) {
        console.problem(path + ": a file with a name that is not UTF-8 cannot be put on a board");
        return false;
    }
    try {
        file.path = path;
        file.size = std::filesystem::file_size(path);
    } catch (const std::filesystem::filesystem_error& failure) {
        console.problem(path + ": " + failure.code().message());
        return false;
    }
    return true;
}

bool send(const Boards& boards, const KvCInventoryAddress& address, const BoardLock& lock, const Local& file,
          Progress& progress, unsigned share, Name& name, Console& console)
{
    Share part{progress, share};
    KvCErrorListPool errors;
    const long result = KvCInventoryManager::getInstance().transferFile(errors, boards.handle(), address, lock.handle(),
                                                                        file.wide.c_str(), advance, &part, name);
    if (result == 0 && Interruption::happened()) {
        // It came too late to end the transfer; the file is as unwanted.
        Interruption::giveBack();
        remove(boards, address, lock, name, console);
        return false;
    }
    console.report(errors);
    return result == 0;
}

bool remove(const Boards& boards, const KvCInventoryAddress& address, const BoardLock& lock, const Name& name,
            Console& console)
{
    KvCErrorListPool errors;
    const long result =
        KvCInventoryManager::getInstance().deleteRemoteFile(errors, boards.handle(), address, lock.handle(), name);
    console.report(errors);
    return result == 0;
}

}  // namespace RemoteFile
