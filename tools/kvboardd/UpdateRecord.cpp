#include "tools/kvboardd/UpdateRecord.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <set>

#include "platform/errorhandling/KvCErrorList.h"
#include "tools/common/JsonEvents.h"
#include "tools/kvboardd/Image.h"
#include "tools/kvboardd/Log.h"

namespace KvNBoardService {

namespace {

using State = UpdateRecord::State;

constexpr const char* format = "korvel-update";
constexpr std::size_t shownTextBytes = 100;
constexpr std::size_t versionDigits = 16;

struct StateName
{
    State state;
    std::string_view name;
};
constexpr StateName stateNames[] = {
    {State::Idle, "idle"}, {State::Running, "running"}, {State::Verified, "verified"}, {State::Failed, "failed"}};

struct Member
{
    std::string_view name;
    const char* what;
    bool isAlways;  ///< there in a record without an update too
};
constexpr Member members[] = {{"format", "the text \"korvel-update\"", true},
                              {"version", "the number 1", true},
                              {"state", "\"idle\", \"running\", \"verified\" or \"failed\"", true},
                              {"address", "the address of an item", false},
                              {"firmwareType", "the number of a firmware type", false},
                              {"newVersion", "0x and 16 hexadecimal digits", false},
                              {"errors", "an error list block in hexadecimal digits", false}};

const Member* memberOf(std::string_view name)
{
    const auto found =
        std::find_if(std::begin(members), std::end(members), [&](const Member& member) { return member.name == name; });
    return found == std::end(members) ? nullptr : found;
}

void appendHex(std::string& out, KvUInt64 value, std::size_t digits)
{
    while (digits-- > 0)
        out += "0123456789abcdef"[value >> 4 * digits & 0xF];
}

/** The number that hexadecimal digits say. */
bool parseHex(std::string_view digits, KvUInt64& value)
{
    const char* const end = digits.data() + digits.size();
    const auto [last, error] = std::from_chars(digits.data(), end, value, 16);
    return error == std::errc() && last == end && digits.front() != '-';
}

bool parseBlock(std::string_view digits, std::vector<unsigned char>& block)
{
    if (digits.size() % 2 != 0)
        return false;
    block.resize(digits.size() / 2);
    for (unsigned char& byte : block) {
        KvUInt64 value = 0;
        if (!parseHex(digits.substr(0, 2), value))
            return false;
        byte = static_cast<unsigned char>(value);
        digits.remove_prefix(2);
    }
    return KvCErrorListPool().deSerialize(block.data(), block.size());
}

/** Reads a record from its tokens. */
class Reader : public KvNJson::Handler
{
public:
    explicit Reader(UpdateRecord& record) : m_record(record) {}

    const std::string& problem() const { return m_problem; }

    bool null() override { return wrong("null"); }
    bool boolean(bool) override { return wrong("true or false"); }
    bool number(const KvNJson::Number& value) override;
    bool text(std::string_view value) override;
    bool startObject() override;
    bool key(std::string_view name) override;
    bool endObject() override;
    bool startArray() override { return wrong("an array"); }
    bool endArray() override { return true; }
    void malformed(const std::string& what) override { m_problem = what; }

private:
    bool fail(const std::string& what);
    bool wrong(const char* found);
    bool state(std::string_view name);
    bool isText(std::string_view value);

    UpdateRecord& m_record;
    bool m_isInside = false;
    std::string m_key;
    std::set<std::string> m_seen;
    std::string m_problem;
};

bool Reader::fail(const std::string& what)
{
    KvNJson::Pointer pointer("");
    if (!m_key.empty())
        pointer.member(m_key);
    m_problem = "at \"" + shown(pointer.text()) + "\": " + what;
    return false;
}

bool Reader::wrong(const char* found)
{
    if (!m_isInside)
        return fail(std::string(found) + " instead of an object");
    return fail(std::string(found) + " instead of " + memberOf(m_key)->what);
}

bool Reader::number(const KvNJson::Number& value)
{
    const bool isWhole = value.kind == KvNJson::Number::Kind::Unsigned;
    if (m_key == "version")
        return (isWhole && value.asUnsigned == 1) || wrong("another number");
    if (m_key != "firmwareType")
        return wrong("a number");
    m_record.firmwareType = static_cast<KvUInt32>(value.asUnsigned);
    const bool isType = isWhole && value.asUnsigned <= 0xFFFFFFFF && firmwareTypeName(m_record.firmwareType) != nullptr;
    return isType || wrong("another number");
}

bool Reader::state(std::string_view name)
{
    for (const StateName& row : stateNames) {
        if (row.name != name)
            continue;
        m_record.state = row.state;
        return true;
    }
    return false;
}

/** Takes a member that is a text; false when it is another one than it must be. */
bool Reader::isText(std::string_view value)
{
    if (m_key == "format")
        return value == format;
    if (m_key == "state")
        return state(value);
    if (m_key == "address") {
        m_record.address = value;
        return !value.empty() && value.find('\0') == std::string_view::npos;
    }
    if (m_key == "newVersion")
        return value.size() == versionDigits + 2 && value.substr(0, 2) == "0x" &&
               parseHex(value.substr(2), m_record.newVersion);
    return parseBlock(value, m_record.errors);
}

bool Reader::text(std::string_view value)
{
    if (!m_isInside || m_key == "version" || m_key == "firmwareType")
        return wrong("a text");
    return isText(value) || wrong(("\"" + shown(value, shownTextBytes) + "\"").c_str());
}

bool Reader::startObject()
{
    if (m_isInside)
        return wrong("an object");
    m_isInside = true;
    return true;
}

bool Reader::key(std::string_view name)
{
    m_key = name;
    if (memberOf(name) == nullptr)
        return fail("unknown member");
    return m_seen.insert(m_key).second || fail("the member is there twice");
}

bool Reader::endObject()
{
    m_key.clear();
    for (const Member& member : members)
        if ((member.isAlways || m_record.state != State::Idle) && m_seen.count(std::string(member.name)) == 0)
            return fail("the member \"" + std::string(member.name) + "\" is missing");
    return true;
}

}  // namespace

std::string updateRecordText(const UpdateRecord& record)
{
    std::string out = "{\"format\": \"korvel-update\", \"version\": 1, \"state\": ";
    for (const StateName& row : stateNames)
        if (row.state == record.state)
            KvNJson::appendString(out, row.name);
    if (record.state != State::Idle) {
        out += ", \"address\": ";
        KvNJson::appendString(out, record.address);
        out += ", \"firmwareType\": " + std::to_string(record.firmwareType) + ", \"newVersion\": \"0x";
        appendHex(out, record.newVersion, versionDigits);
        out += "\", \"errors\": \"";
        for (const unsigned char byte : record.errors)
            appendHex(out, byte, 2);
        out += "\"";
    }
    return out + "}\n";
}

bool readUpdateRecord(std::string_view text, UpdateRecord& record, std::string& problem)
{
    record = UpdateRecord();
    Reader reader(record);
    KvNJson::TextSource source(text);
    if (KvNJson::parse(source, reader))
        return true;
    problem = reader.problem();
    return false;
}

}  // namespace KvNBoardService
