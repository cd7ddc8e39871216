#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "Operation.h"
#include "PrintedText.h"
#include "Trees.h"
#include "base/Crc32.h"
#include "base/KvCBuffer.h"
#include "base/KvCVersion.h"

/* Texts, versions and buffers. */

namespace {

struct Texts
{
    KvCString text{"short"};
    KvCString other{longText};
    KvCString* pieces = nullptr;
    unsigned long count = 0;
    ~Texts() { delete[] pieces; }
};

std::string told(Texts& texts)
{
    return texts.text.c_str();
}

struct Version
{
    KvCVersion version{123, 121, 212, 2, 45678, 6789};
    KvCString text;
};

struct Buffer
{
    KvCErrorListPool setUp;
    KvCBuffer buffer{setUp};
    KvCBuffer* fresh = nullptr;
    ~Buffer() { delete fresh; }
};

struct BufferFile : Buffer
{
    std::string path;
    BufferFile()
    {
        char name[] = "/tmp/torture-XXXXXX";
        const int file = mkstemp(name);
        path = name;
        buffer.writeBuffer(setUp, longText, 50, 1);
        buffer.WriteToFile(setUp, name);
        close(file);
    }
    ~BufferFile() { std::filesystem::remove(path); }
};

struct PrintedBuffer : Buffer
{
    PrintedText printed;
    PrintedBuffer() { buffer.writeBuffer(setUp, longText, 50, 1); }
};

void addStringRows(Table& table)
{
    table.add<Texts>(
        "KvCString::KvCString KvCString::operator=",
        [](Texts& texts, KvCErrorListPool& errors) {
            const KvCString made(longText);
            const KvCString part(longText, 40);
            const KvCString number(18446744073709551615UL);
            const KvCString copy(made);
            texts.text = copy;
            const bool whole = isQuiet(errors);
            texts.other = longText;
            if (whole && (made.length() != 55 || part.length() != 40 || number.length() != 20))
                texts.text = "wrong";
            return isQuiet(errors);
        },
        told);
    table.add<Texts>(
        "KvCString::operator+",
        [](Texts& texts, KvCErrorListPool& errors) {
            texts.text = KvCString("short") + texts.other + ", and more";
            return isQuiet(errors);
        },
        told);
    table.add<Texts>(
        "KvCString::fromBlock",
        [](Texts& texts, KvCErrorListPool&) {
            auto* const block = static_cast<char*>(KvNAllocation::allocate(100));
            if (block == nullptr)
                return false;
            std::memcpy(block, longText, 56);
            texts.text = KvCString::fromBlock(block, 55);
            return true;
        },
        told, Says::ByResult);
    table.add<Texts>(
        "KvCString::split",
        [](Texts& texts, KvCErrorListPool& errors) {
            delete[] texts.pieces;
            texts.pieces = KvCString("a piece that needs a block of its own,b,another one that needs a block")
                               .split(',', &texts.count);
            return texts.pieces != nullptr && isQuiet(errors);
        },
        [](Texts& texts) {
            std::string all;
            for (unsigned long i = 0; i < texts.count; ++i)
                all += std::string(texts.pieces[i].c_str()) + "|";
            return all;
        },
        Says::ByResult);
    table.add<Texts>(
        "KvCString::operator== KvCString::countChar KvCString::strcmp KvCString::strcpy KvCString::strlen "
        "KvCString::strncpy KvCString::strstr KvNCrc32::crc32",
        [](Texts& texts, KvCErrorListPool&) {
            char area[100];
            KvCString::strncpy(area, "other", 10);
            KvCString::strcpy(area, texts.other.c_str());
            return !(texts.text == texts.other) && KvCString::strcmp(area, texts.other.c_str()) == 0 &&
                   KvCString::strstr(area, "text") == area + 2 && KvCString::strlen(area) == 55 &&
                   texts.other.countChar('x') == 1 && KvNCrc32::crc32(0, "a", 1) == 0xE8B7BE43;
        },
        told);
    table.add<Version>(
        "KvCVersion::getAsString",
        [](Version& version, KvCErrorListPool& errors) {
            version.text = version.version.getAsString();
            return isQuiet(errors);
        },
        [](Version& version) { return std::string(version.text.c_str()); });
    table.add<Version>(
        "KvCVersion::setByString KvCVersion::operator<",
        [](Version& version, KvCErrorListPool&) {
            return version.version.setByString("3.1.2b4p7") && !(version.version < KvCVersion(3, 1, 2, 2, 4, 6));
        },
        [](Version& version) { return std::to_string(version.version.getAsULong64()); });
}

void addBufferRows(Table& table)
{
    table.add<Buffer>(
        "KvCBuffer::initBuffer KvCBuffer::clearBuffer",
        [](Buffer& state, KvCErrorListPool& errors) {
            delete state.fresh;
            state.fresh = new (errors) KvCBuffer(errors);
            if (state.fresh == nullptr)
                errors.setError(0x401, 1, "test", nullptr);
            return isQuiet(errors);
        },
        [](Buffer& state) { return std::to_string(state.fresh->getSize()); });
    table.add<Buffer>(
        "KvCBuffer::allocateBuffer",
        [](Buffer& state, KvCErrorListPool& errors) {
            if (state.buffer.getSize() == 1024)
                state.buffer.allocateBuffer(errors, 100000);
            return isQuiet(errors);
        },
        [](Buffer& state) { return std::to_string(state.buffer.getSize()); });
    table.add<Buffer>(
        "KvCBuffer::reserve KvCBuffer::commit KvCBuffer::setReadPosition KvCBuffer::readBuffer",
        [](Buffer& state, KvCErrorListPool& errors) {
            state.buffer.setWritePointer(errors, state.buffer.getStartPointer());
            char* const place = state.buffer.reserve(errors, 5000);
            if (place == nullptr)
                return false;
            std::memset(place, 'x', 5000);
            state.buffer.commit(place + 5000);
            char back[10];
            state.buffer.setReadPosition(errors, 4990);
            state.buffer.readBuffer(errors, back, 10, 1);
            return isQuiet(errors);
        },
        [](Buffer& state) { return bytesOf(state.buffer); });
    table.add<Buffer>(
        "KvCBuffer::setReadPointer KvCBuffer::setWritePointer KvCBuffer::incrementReadPointer "
        "KvCBuffer::incrementWritePointer",
        [](Buffer& state, KvCErrorListPool& errors) {
            state.buffer.setWritePointer(errors, state.buffer.getStartPointer());
            state.buffer.incrementWritePointer(errors, 600);
            if (!isQuiet(errors))
                return false;
            state.buffer.setReadPointer(errors, state.buffer.getStartPointer());
            state.buffer.incrementReadPointer(errors, 500);
            return isQuiet(errors);
        },
        [](Buffer& state) {
            return std::to_string(state.buffer.getWritePosition()) + " " +
                   std::to_string(state.buffer.getReadPosition());
        });
    table.add<BufferFile>(
        "KvCBuffer::ReadFromFile",
        [](BufferFile& state, KvCErrorListPool& errors) {
            state.buffer.setWritePointer(errors, state.buffer.getStartPointer());
            state.buffer.ReadFromFile(errors, KV_SAMPLES_DIR "/single-board.inv");
            return isQuiet(errors);
        },
        [](BufferFile& state) { return bytesOf(state.buffer); });
    table.add<BufferFile>(
        "KvCBuffer::WriteToFile",
        [](BufferFile& state, KvCErrorListPool& errors) {
            state.buffer.WriteToFile(errors, state.path.c_str());
            return isQuiet(errors);
        },
        [](BufferFile& state) {
            state.buffer.setWritePointer(state.setUp, state.buffer.getStartPointer());
            state.buffer.ReadFromFile(state.setUp, state.path.c_str());
            return bytesOf(state.buffer);
        },
        Says::InItsWords);
    table.add<PrintedBuffer>(
        "KvCBuffer::hexDumpBuffer KvCBuffer::printAsciiBuffer KvCBuffer::printBinaryBuffer",
        [](PrintedBuffer& state, KvCErrorListPool& errors) {
            state.printed.clear();
            state.buffer.hexDumpBuffer();
            state.buffer.printAsciiBuffer();
            state.buffer.printBinaryBuffer();
            return isQuiet(errors);
        },
        [](PrintedBuffer& state) { return state.printed.text(); });
}

}  // namespace

void addBaseRows(Table& table)
{
    addStringRows(table);
    addBufferRows(table);
}
