#include "tools/kvinv/TreeFile.h"

#include <filesystem>
#include <vector>

#include "base/KvCBuffer.h"
#include "inventory/KvCInventoryData.h"
#include "platform/files/KvNFiles.h"

namespace TreeFile {

namespace {

constexpr std::size_t pieceSize = 65536;
/** What is read from a pipe has to be held in memory. */
constexpr std::size_t largestPiped = std::size_t{256} << 20;

/** A file as the bytes of a JSON document. */
class FileSource : public KvNJson::Source
{
public:
    explicit FileSource(KvNFiles::Reader& reader) : m_reader(reader), m_piece(pieceSize) {}
    std::string_view next() override { return {m_piece.data(), m_reader.read(m_piece.data(), m_piece.size())}; }

private:
    KvNFiles::Reader& m_reader;
    std::vector<char> m_piece;
};

}  // namespace

bool isRegular(const std::string& path)
{
    std::error_code error;
    return path != "-" && std::filesystem::is_regular_file(path, error);
}

std::string shownName(const std::string& path)
{
    return path == "-" ? "standard input" : path;
}

bool readAll(const std::string& path, std::vector<char>& bytes, Console& console)
{
    KvNFiles::Reader reader;
    std::size_t count = 0;
    if (reader.open(path)) {
        do {
            bytes.resize(bytes.size() + pieceSize);
            count = reader.read(bytes.data() + bytes.size() - pieceSize, pieceSize);
            bytes.resize(bytes.size() - pieceSize + count);
        } while (count > 0 && bytes.size() <= largestPiped);
    }
    if (!reader.problem().empty()) {
        console.problem(reader.problem());
        return false;
    }
    if (bytes.size() > largestPiped) {
        console.problem(shownName(path) + ": more than 256 MiB, which only a regular file may have");
        return false;
    }
    return true;
}

namespace {

/** Whether a regular file can be read at all; told when not. */
bool isReadable(const std::string& path, Console& console)
{
    KvNFiles::Reader reader;
    char byte = 0;
    if (reader.open(path))
        reader.read(&byte, 1);
    if (reader.problem().empty())
        return true;
    console.problem(reader.problem());
    return false;
}

std::unique_ptr<KvCInventoryItem> sectionOf(const std::vector<char>& bytes, KvCErrorListPool& errors)
{
    KvCInventoryItem* tree = nullptr;
    KvCInventoryData::extractInventoryTreeFromMem(errors, reinterpret_cast<const unsigned char*>(bytes.data()),
                                                  static_cast<unsigned long>(bytes.size()), tree);
    return std::unique_ptr<KvCInventoryItem>(tree);
}

std::unique_ptr<KvCInventoryItem> sectionOf(const std::string& path, KvCErrorListPool& errors)
{
    KvCInventoryItem* tree = nullptr;
    KvCInventoryData::extractInventoryTreeFromFile(errors, path.c_str(), tree);
    return std::unique_ptr<KvCInventoryItem>(tree);
}

std::unique_ptr<KvCInventoryItem> jsonOf(KvNJson::Source& source, const std::string& path, Console& console)
{
    std::string problem;
    std::unique_ptr<KvCInventoryItem> tree = KvNTreeJson::readTree(source, problem);
    if (tree == nullptr)
        console.problem(shownName(path) + ": " + problem);
    return tree;
}

/** Whether the bytes can be the start of a JSON document. */
bool beginsLikeJson(std::string_view bytes)
{
    if (bytes.substr(0, 3) == "\xEF\xBB\xBF")
        bytes.remove_prefix(3);
    const std::size_t first = bytes.find_first_not_of(" \t\r\n");
    return first != std::string_view::npos && bytes[first] == '{';
}

/** Tells what there is to tell of a section that could not be read, or is not there. */
std::unique_ptr<KvCInventoryItem> judged(std::unique_ptr<KvCInventoryItem> tree, const KvCErrorListPool& errors,
                                         const std::string& path, Console& console)
{
    console.report(errors);
    if (tree == nullptr && errors.getErrorCount() == 0)
        console.problem("no inventory section in " + shownName(path));
    return tree;
}

/** A description or unit that a section cannot hold whole; empty when all can be held. */
std::string tooLong(const KvCInventoryItem& root)
{
    constexpr std::size_t longestDescription = 254;
    constexpr std::size_t longestUnit = 100;
    const auto told = [](const KvCInventoryAddress& address, const char* what, std::size_t limit) {
        return std::string("the ") + what + " of " + address.toString().c_str() + " is too long: a section holds " +
               std::to_string(limit) + " bytes of it";
    };
    std::string problem;
    const KvCInventoryItem* item = &root;
    while (item != nullptr && problem.empty()) {
        if (KvCString::strlen(item->getDescription()) > longestDescription)
            return told(item->getAddress(), "description", longestDescription);
        item->forEachParameter([&](const KvCInventoryParameter& parameter) {
            if (KvCString::strlen(parameter.getDescription()) > longestDescription)
                problem = told(parameter.getAddress(), "description", longestDescription);
            else if (KvCString::strlen(parameter.getUnit()) > longestUnit)
                problem = told(parameter.getAddress(), "unit", longestUnit);
            return problem.empty();
        });
        if (item->getFirstSubItem() != nullptr) {
            item = item->getFirstSubItem();
            continue;
        }
        while (item != &root && item->getNext() == nullptr)
            item = item->getParent();
        item = item == &root ? nullptr : item->getNext();
    }
    return problem;
}

bool copyInto(KvNFiles::NewFile& file, const std::string& path, Console& console)
{
    KvNFiles::Reader reader;
    std::vector<char> piece(pieceSize);
    std::size_t count = 0;
    bool good = reader.open(path);
    while (good && (count = reader.read(piece.data(), piece.size())) > 0)
        good = file.write(piece.data(), count);
    if (!reader.problem().empty() || !good) {
        console.problem(reader.problem().empty() ? file.problem() : reader.problem());
        return false;
    }
    return true;
}

}  // namespace

std::unique_ptr<KvCInventoryItem> readSection(const std::string& path, Console& console)
{
    KvCErrorListPool errors;
    std::unique_ptr<KvCInventoryItem> tree;
    if (isRegular(path)) {
        if (!isReadable(path, console))
            return nullptr;
        tree = sectionOf(path, errors);
    } else {
        std::vector<char> bytes;
        if (!readAll(path, bytes, console))
            return nullptr;
        tree = sectionOf(bytes, errors);
    }
    return judged(std::move(tree), errors, path, console);
}

std::unique_ptr<KvCInventoryItem> readJson(const std::string& path, Console& console)
{
    KvNFiles::Reader reader;
    std::string problem;
    std::unique_ptr<KvCInventoryItem> tree;
    if (reader.open(path)) {
        FileSource source(reader);
        tree = KvNTreeJson::readTree(source, problem);
    }
    if (!reader.problem().empty())
        console.problem(reader.problem());
    else if (tree == nullptr)
        console.problem(shownName(path) + ": " + problem);
    return reader.problem().empty() ? std::move(tree) : nullptr;
}

std::unique_ptr<KvCInventoryItem> readEither(const std::string& path, Console& console)
{
    KvCErrorListPool errors;
    std::vector<char> bytes;
    std::unique_ptr<KvCInventoryItem> tree;
    if (isRegular(path)) {
        if (!isReadable(path, console))
            return nullptr;
        tree = sectionOf(path, errors);
        KvNFiles::Reader reader;
        bytes.resize(4096);
        bytes.resize(reader.open(path) ? reader.read(bytes.data(), bytes.size()) : 0);
    } else {
        if (!readAll(path, bytes, console))
            return nullptr;
        tree = sectionOf(bytes, errors);
    }
    const bool isJson = beginsLikeJson({bytes.data(), bytes.size()});
    if (tree == nullptr && errors.getErrorCount() == 0 && isJson) {
        if (isRegular(path))
            return readJson(path, console);
        KvNJson::TextSource source({bytes.data(), bytes.size()});
        return jsonOf(source, path, console);
    }
    return judged(std::move(tree), errors, path, console);
}

bool writeSection(const std::string& path, bool append, KvCInventoryItem& tree, Console& console)
{
    if (const std::string problem = tooLong(tree); !problem.empty()) {
        console.problem(problem);
        return false;
    }
    KvCErrorListPool errors;
    KvCBuffer buffer(errors);
    KvCInventoryData::generateInventorySection(errors, buffer, &tree);
    if (errors.getErrorCount() > 0) {
        console.report(errors);
        return false;
    }
    const std::string_view section(buffer.getStartPointer(), buffer.getOccupiedSize());
    if (path == "-")
        return console.write(section);
    if (append && !isRegular(path)) {
        std::error_code error;
        const bool exists = std::filesystem::exists(path, error);
        console.problem(path + (exists ? ": only a regular file can be appended to" : ": No such file or directory"));
        return false;
    }
    KvNFiles::NewFile file;
    if (!file.open(path)) {
        console.problem(file.problem());
        return false;
    }
    if (append && !copyInto(file, path, console))
        return false;
    if (!file.write(section.data(), section.size()) || !file.commit()) {
        console.problem(file.problem());
        return false;
    }
    return true;
}

}  // namespace TreeFile
