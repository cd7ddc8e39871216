#include "tools/kvboardd/BoardFile.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <utility>

#include "inventory/KvCInventoryData.h"
#include "inventory/KvCInventoryItem.h"
#include "inventory/KvCInventoryParameter.h"
#include "inventory/ids/KvNInventoryIDs.h"
#include "platform/errorhandling/KvCErrorList.h"
#include "platform/files/KvNFiles.h"
#include "tools/common/JsonEvents.h"
#include "tools/common/TreeJson.h"
#include "tools/kvboardd/Log.h"

namespace KvNBoardService {

namespace {

constexpr std::size_t longestName = 255;
constexpr std::size_t mostBoards = 4096;
constexpr std::size_t shownTextBytes = 100;

/** The bytes of a file, piece by piece. */
class FileSource : public KvNJson::Source
{
public:
    bool open(const std::string& path) { return m_file.open(path); }
    /** Why something failed; empty while nothing did. */
    const std::string& problem() const { return m_file.problem(); }
    std::string_view next() override { return {m_block.data(), m_file.read(m_block.data(), m_block.size())}; }

private:
    KvNFiles::Reader m_file;
    std::vector<char> m_block = std::vector<char>(65536);
};

bool isRegularFile(const std::string& path, std::string& problem)
{
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (std::filesystem::is_regular_file(status))
        return true;
    problem = path + ": " + (std::filesystem::exists(status) ? "not a regular file" : "cannot be opened");
    if (error)
        problem += ": " + error.message();
    return false;
}

/** The tree of the section in a file; null without a problem when the file has no section. */
std::unique_ptr<KvCInventoryItem> readSection(const std::string& path, std::string& problem)
{
    KvCErrorListPool errors;
    KvCInventoryItem* root = nullptr;
    KvCInventoryData::extractInventoryTreeFromFile(errors, path.c_str(), root);
    if (errors.getErrorCount() != 0)
        problem = path + ": " + errors.getErrorText(0);
    return std::unique_ptr<KvCInventoryItem>(root);
}

/** The tree in a file, a section or tree JSON. */
std::unique_ptr<KvCInventoryItem> readTreeFile(const std::string& path, std::string& problem)
{
    if (!isRegularFile(path, problem))
        return nullptr;
    std::unique_ptr<KvCInventoryItem> tree = readSection(path, problem);
    if (tree || !problem.empty())
        return tree;
    FileSource source;
    if (source.open(path)) {
        tree = KvNTreeJson::readTree(source, problem);
        if (!tree)
            problem = path + ": " + problem;
    }
    if (source.problem().empty())
        return tree;
    problem = source.problem();
    return nullptr;
}

/** Whether a board's tree may have this root: HCN or CN with the serial number as its index. */
bool isBoardRoot(const KvCInventoryAddress& root, KvUInt32 serialNumber)
{
    return root == KvNInventoryIDs::HCN[serialNumber] || root == KvNInventoryIDs::CN[serialNumber];
}

/** What the root of a board's tree says of the board, for the members that nothing else says. */
void describeByTree(BoardDescription& board)
{
    const auto text = [&](const KvCInventoryAddress& id) -> std::string {
        const KvCInventoryParameter* parameter = board.tree->getParameter(id);
        const KvCString* value = parameter == nullptr ? nullptr : parameter->valueIf<KvCString>();
        return value == nullptr ? std::string() : std::string(value->c_str()).substr(0, longestName);
    };
    board.serialNumber = board.tree->getID().getIndex();
    board.boardName = text(KvNInventoryIDs::NAME);
    board.systemName = text(KvNInventoryIDs::SYSTEMNAME);
    const KvCInventoryParameter* type = board.tree->getParameter(KvNInventoryIDs::BOARD_TYPE);
    if (type != nullptr && type->valueIf<KvUInt32>() != nullptr)
        board.boardType = *type->valueIf<KvUInt32>();
}

/** Reads a board file from its tokens; what stands inside an inline tree is handed on to the tree's own reader. */
class Reader : public KvNJson::Handler
{
public:
    Reader(std::string folder, std::vector<BoardDescription>& boards) : m_folder(std::move(folder)), m_boards(boards) {}

    const std::string& problem() const { return m_problem; }

    bool null() override { return m_tree ? forwarded(m_tree->null()) : wrong("null"); }
    bool boolean(bool value) override { return m_tree ? forwarded(m_tree->boolean(value)) : wrong("true or false"); }
    bool number(const KvNJson::Number& value) override;
    bool text(std::string_view value) override;
    bool startObject() override;
    bool key(std::string_view name) override;
    bool endObject() override;
    bool startArray() override;
    bool endArray() override;
    void malformed(const std::string& what) override { m_problem = what; }

private:
    enum class Place
    {
        Document,
        File,
        Boards,
        Board
    };

    KvNJson::Pointer pointer(bool withKey) const;
    bool fail(const std::string& what, bool atKey = true);
    bool wrong(const char* found);
    bool forwarded(bool good);
    bool name(std::string_view value, std::string& field);
    bool finishBoard();
    bool has(const char* member) const { return m_seen.count(member) != 0; }

    std::string m_folder;
    std::vector<BoardDescription>& m_boards;
    std::string m_problem;
    Place m_place = Place::Document;
    std::string m_key;
    std::set<std::string> m_seen;      ///< members of the object that is being read
    std::set<std::string> m_seenFile;  ///< members of the file's object, while a board is being read
    std::unique_ptr<KvNTreeJson::ItemReader> m_tree;
    std::string m_treePath;
    BoardDescription m_board;
    std::set<KvUInt32> m_serials;
    std::set<KvUInt32> m_addresses;
};

/** What each member must be, for messages; null for an unknown one. */
const char* expected(bool inBoard, std::string_view key)
{
    static constexpr std::pair<const char*, const char*> file[] = {
        {"format", "the text \"korvel-board\""}, {"version", "the number 1"}, {"boards", "an array"}};
    static constexpr std::pair<const char*, const char*> board[] = {
        {"serialNumber", "a whole number from 0 to 4294967295"},
        {"boardType", "a whole number from 0 to 4294967295"},
        {"boardName", "a text of at most 255 bytes without zero bytes"},
        {"systemName", "a text of at most 255 bytes without zero bytes"},
        {"address", "an IPv4 address such as \"127.0.0.11\""},
        {"tree", "the name of a file, or an item"}};
    const auto find = [&](const auto& list) -> const char* {
        const auto found =
            std::find_if(std::begin(list), std::end(list), [&](const auto& member) { return key == member.first; });
        return found == std::end(list) ? nullptr : found->second;
    };
    return inBoard ? find(board) : find(file);
}

KvNJson::Pointer Reader::pointer(bool withKey) const
{
    KvNJson::Pointer result("");
    if (m_place == Place::Boards || m_place == Place::Board)
        result.member("boards").element(m_boards.size());
    if (withKey && (m_place == Place::File || m_place == Place::Board))
        result.member(m_key);
    return result;
}

bool Reader::fail(const std::string& what, bool atKey)
{
    m_problem = "at \"" + shown(pointer(atKey).text()) + "\": " + what;
    return false;
}

bool Reader::wrong(const char* found)
{
    switch (m_place) {
        case Place::Document:
            return fail(std::string(found) + " instead of an object");
        case Place::Boards:
            return fail(std::string(found) + " instead of a board's object");
        default:
            return fail(std::string(found) + " instead of " + expected(m_place == Place::Board, m_key));
    }
}

bool Reader::forwarded(bool good)
{
    if (!good) {
        m_problem = m_tree->problem();
        return false;
    }
    if (m_tree->isDone()) {
        m_board.tree = m_tree->take();
        m_tree.reset();
    }
    return true;
}

bool Reader::number(const KvNJson::Number& value)
{
    if (m_tree)
        return forwarded(m_tree->number(value));
    const bool isWhole = value.kind == KvNJson::Number::Kind::Unsigned;
    if (m_place == Place::File && m_key == "version")
        return (isWhole && value.asUnsigned == 1) || fail("version is not 1");
    if (m_place != Place::Board || (m_key != "serialNumber" && m_key != "boardType"))
        return wrong("a number");
    if (!isWhole || value.asUnsigned > 0xFFFFFFFF)
        return wrong("another number");
    (m_key == "boardType" ? m_board.boardType : m_board.serialNumber) = static_cast<KvUInt32>(value.asUnsigned);
    if (m_key == "serialNumber" && !m_serials.insert(m_board.serialNumber).second)
        return fail("serial number " + std::to_string(m_board.serialNumber) + " is used twice");
    return true;
}

bool Reader::name(std::string_view value, std::string& field)
{
    if (value.size() > longestName || value.find('\0') != std::string_view::npos)
        return wrong("another text");
    field = value;
    return true;
}

bool Reader::text(std::string_view value)
{
    if (m_tree)
        return forwarded(m_tree->text(value));
    if (m_place == Place::File && m_key == "format")
        return value == "korvel-board" ||
               fail("format is \"" + shown(value, shownTextBytes) + "\", not \"korvel-board\"");
    if (m_place != Place::Board)
        return wrong("a text");
    if (m_key == "boardName")
        return name(value, m_board.boardName);
    if (m_key == "systemName")
        return name(value, m_board.systemName);
    if (m_key == "tree") {
        if (value.empty() || value.find('\0') != std::string_view::npos)
            return wrong("another text");
        m_treePath = value;
        return true;
    }
    if (m_key != "address")
        return wrong("a text");
    if (!parseAddress(value, m_board.address))
        return fail("\"" + shown(value, shownTextBytes) + "\" is not " + expected(true, m_key));
    return true;
}

bool Reader::startObject()
{
    if (m_tree)
        return forwarded(m_tree->startObject());
    switch (m_place) {
        case Place::Document:
            m_place = Place::File;
            return true;
        case Place::Boards:
            if (m_boards.size() == mostBoards)
                return fail("more than " + std::to_string(mostBoards) + " boards");
            m_place = Place::Board;
            m_seenFile = std::exchange(m_seen, {});
            m_board = BoardDescription();
            m_treePath.clear();
            return true;
        case Place::Board:
            if (m_key != "tree")
                return wrong("an object");
            m_tree = std::make_unique<KvNTreeJson::ItemReader>(pointer(true).text());
            return forwarded(m_tree->startObject());
        default:
            return wrong("an object");
    }
}

bool Reader::key(std::string_view name)
{
    if (m_tree)
        return forwarded(m_tree->key(name));
    m_key = name;
    if (expected(m_place == Place::Board, name) == nullptr)
        return fail("unknown member");
    return m_seen.insert(m_key).second || fail("the member is there twice");
}

bool Reader::endObject()
{
    if (m_tree)
        return forwarded(m_tree->endObject());
    if (m_place == Place::Board)
        return finishBoard();
    m_place = Place::Document;
    for (const char* member : {"format", "version", "boards"})
        if (!has(member))
            return fail(std::string("the member \"") + member + "\" is missing", false);
    return true;
}

bool Reader::finishBoard()
{
    for (const char* member : {"serialNumber", "tree"})
        if (!has(member))
            return fail(std::string("the member \"") + member + "\" is missing", false);
    m_key = "address";
    if (!m_addresses.insert(m_board.address).second)
        return fail("address " + addressText(m_board.address) + " is used twice", has("address"));
    m_key = "tree";
    if (!m_treePath.empty()) {
        std::string problem;
        m_board.tree = readTreeFile((std::filesystem::path(m_folder) / m_treePath).string(), problem);
        if (!m_board.tree)
            return fail(problem);
    }
    if (!isBoardRoot(m_board.tree->getID(), m_board.serialNumber)) {
        const std::string index = "[" + std::to_string(m_board.serialNumber) + "]";
        return fail("the tree's root is " + shownAddress(m_board.tree->getID()) + ", not HCN" + index + " or CN" +
                    index);
    }
    m_boards.push_back(std::move(m_board));
    m_seen = std::exchange(m_seenFile, {});
    m_place = Place::Boards;
    return true;
}

bool Reader::startArray()
{
    if (m_tree)
        return forwarded(m_tree->startArray());
    if (m_place != Place::File || m_key != "boards")
        return wrong("an array");
    m_place = Place::Boards;
    return true;
}

bool Reader::endArray()
{
    if (m_tree)
        return forwarded(m_tree->endArray());
    m_place = Place::File;
    m_key = "boards";
    return !m_boards.empty() || fail("there is no board");
}

bool parse(KvNJson::Source& source, const std::string& name, const std::string& folder,
           std::vector<BoardDescription>& boards, std::string& problem)
{
    boards.clear();
    Reader reader(folder, boards);
    if (KvNJson::parse(source, reader))
        return true;
    boards.clear();
    problem = name + ": " + reader.problem();
    return false;
}

}  // namespace

bool parseAddress(std::string_view text, KvUInt32& address)
{
    KvUInt32 result = 0;
    for (int part = 0; part < 4; ++part) {
        if (part != 0) {
            if (text.empty() || text.front() != '.')
                return false;
            text.remove_prefix(1);
        }
        KvUInt32 number = 0;
        std::size_t digits = 0;
        while (digits < text.size() && digits < 3 && text[digits] >= '0' && text[digits] <= '9')
            number = number * 10 + static_cast<KvUInt32>(text[digits++] - '0');
        if (digits == 0 || number > 255 || (digits > 1 && text.front() == '0'))
            return false;
        text.remove_prefix(digits);
        result = result << 8 | number;
    }
    address = result;
    return text.empty();
}

bool parseBoardFile(std::string_view text, const std::string& name, const std::string& folder,
                    std::vector<BoardDescription>& boards, std::string& problem)
{
    KvNJson::TextSource source(text);
    return parse(source, name, folder, boards, problem);
}

bool readBoardFile(const std::string& path, std::vector<BoardDescription>& boards, std::string& problem)
{
    boards.clear();
    problem.clear();
    if (!isRegularFile(path, problem))
        return false;
    BoardDescription board;
    board.tree = readSection(path, problem);
    if (!problem.empty())
        return false;
    if (board.tree) {
        describeByTree(board);
        if (!isBoardRoot(board.tree->getID(), board.serialNumber)) {
            problem = path + ": the tree's root is " + shownAddress(board.tree->getID()) + ", not HCN or CN";
            return false;
        }
        boards.push_back(std::move(board));
        return true;
    }
    FileSource source;
    const bool good =
        source.open(path) && parse(source, path, std::filesystem::path(path).parent_path().string(), boards, problem);
    if (source.problem().empty())
        return good;
    boards.clear();
    problem = source.problem();
    return false;
}

}  // namespace KvNBoardService
