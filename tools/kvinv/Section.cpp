#include <algorithm>
#include <filesystem>
#include <optional>

#include "inventory/SectionFormat.h"
#include "platform/files/KvNFiles.h"
#include "tools/common/Text.h"
#include "tools/kvinv/Commands.h"
#include "tools/kvinv/TreeFile.h"

namespace {

/** The parts of a file that can be a frame. */
class Image
{
public:
    bool open(const std::string& path, Console& console)
    {
        if (!TreeFile::isRegular(path)) {
            const bool good = TreeFile::readAll(path, m_bytes, console);
            m_size = m_bytes.size();
            return good;
        }
        std::error_code error;
        m_size = std::filesystem::file_size(path, error);
        char byte = 0;
        m_isFile = m_reader.open(path);
        if (m_isFile)
            m_reader.read(&byte, 1);
        return isGood(console);
    }
    KvUInt64 size() const { return m_size; }
    /** The frame at a position; nothing where there is none. */
    template <class Frame>
    std::optional<Frame> frame(KvUInt64 position)
    {
        unsigned char bytes[KvNSection::FrameSize];
        if (position > m_size || m_size - position < sizeof bytes || !read(position, bytes))
            return std::nullopt;
        Frame found;
        std::copy(std::begin(bytes), std::end(bytes), std::begin(found.bytes));
        return found.hasMagic() ? std::optional<Frame>(found) : std::nullopt;
    }
    bool isGood(Console& console)
    {
        if (!m_reader.problem().empty())
            console.problem(m_reader.problem());
        return m_reader.problem().empty();
    }

private:
    bool read(KvUInt64 position, unsigned char (&bytes)[KvNSection::FrameSize])
    {
        if (m_isFile)
            return m_reader.seek(position) && m_reader.read(bytes, sizeof bytes) == sizeof bytes;
        std::copy_n(m_bytes.begin() + static_cast<std::ptrdiff_t>(position), sizeof bytes, bytes);
        return true;
    }

    KvNFiles::Reader m_reader;
    std::vector<char> m_bytes;
    KvUInt64 m_size = 0;
    bool m_isFile = false;
};

/** What one frame announces. */
struct Announcement
{
    const char* frame;
    KvUInt64 position;
    std::optional<KvUInt64> begins;  ///< nothing when that would lie before the start
    KvUInt32 header;
    KvUInt32 data;
    KvUInt32 trailer;
    KvUInt32 version;
    std::string problem;
};

template <class Frame>
Announcement announcement(const char* name, KvUInt64 position, const Frame& frame)
{
    Announcement said{name, position, {}, frame.headerSize(), frame.dataSize(), frame.trailerSize(), frame.version(),
                      ""};
    if (frame.ownSize() < KvNSection::FrameSize)
        said.problem = std::string("the ") + name + " announces less than its own 24 bytes";
    else if (frame.version() != KvNSection::Version)
        said.problem = std::string("the ") + name + " has the unknown version " + std::to_string(frame.version());
    return said;
}

std::vector<Announcement> announcements(Image& image)
{
    std::vector<Announcement> list;
    const auto addHeader = [&](KvUInt64 position) {
        if (const auto header = image.frame<KvInventorySectionHeader>(position); header) {
            list.push_back(announcement("header", position, *header));
            list.back().begins = position;
            if (list.back().problem.empty() && header->sectionSize() > image.size() - position)
                list.back().problem = "the header announces more than there is";
        }
    };
    const KvUInt64 last = image.size() >= KvNSection::FrameSize ? image.size() - KvNSection::FrameSize : 0;
    const auto trailer = image.frame<KvInventorySectionTrailer>(last);
    KvUInt64 begins = 0;
    if (trailer && trailer->sectionSize() <= image.size())
        begins = image.size() - trailer->sectionSize();
    addHeader(0);
    if (begins != 0)
        addHeader(begins);
    if (trailer) {
        list.push_back(announcement("trailer", last, *trailer));
        if (trailer->sectionSize() <= image.size())
            list.back().begins = begins;
        else if (list.back().problem.empty())
            list.back().problem = "the trailer announces more than there is";
    }
    return list;
}

std::string asJson(const std::vector<Announcement>& list)
{
    std::string out = "[";
    for (const Announcement& said : list) {
        out += &said == &list.front() ? "\n " : ",\n ";
        out += std::string("{\"frame\": \"") + said.frame + "\", \"at\": " + std::to_string(said.position) +
               ", \"begins\": " + (said.begins ? std::to_string(*said.begins) : "null") +
               ", \"headerSize\": " + std::to_string(said.header) + ", \"dataSize\": " + std::to_string(said.data) +
               ", \"trailerSize\": " + std::to_string(said.trailer) + ", \"version\": " + std::to_string(said.version) +
               "}";
    }
    return out + "\n]\n";
}

}  // namespace

int runSection(const Options& options, Console& console)
{
    const std::string& path = options.arguments[0];
    Image image;
    if (!image.open(path, console))
        return StatusFailed;
    const std::vector<Announcement> list = announcements(image);
    if (!image.isGood(console))
        return StatusFailed;
    if (list.empty()) {
        console.problem("no inventory section in " + TreeFile::shownName(path));
        return StatusFailed;
    }
    KvNText::Table table({{"frame"},
                          {"at", true},
                          {"section", true},
                          {"header", true},
                          {"data", true},
                          {"trailer", true},
                          {"version", true}});
    for (const Announcement& said : list)
        table.add({said.frame, std::to_string(said.position), said.begins ? std::to_string(*said.begins) : "-",
                   std::to_string(said.header), std::to_string(said.data), std::to_string(said.trailer),
                   std::to_string(said.version)});
    console.write(options.json ? asJson(list) : table.text(console.bold(), console.plain()));
    int status = StatusDone;
    for (const Announcement& said : list) {
        if (said.problem.empty())
            continue;
        console.problem(TreeFile::shownName(path) + ": " + said.problem);
        status = StatusFailed;
    }
    return status;
}
