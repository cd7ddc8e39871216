#include "tests/platform/dal/ScriptedFiles.h"

#include <chrono>
#include <thread>

#include "platform/dal/DeviceAccessRecords.h"
#include "tests/support/RpcBytes.h"

using namespace KvNDeviceAccess;
using RpcBytes::append;
using RpcBytes::units;
using Bytes = std::vector<unsigned char>;

namespace {

Bytes withList(Bytes bytes, const Bytes& errorList)
{
    append(bytes, static_cast<std::uint32_t>(errorList.size()));
    bytes.insert(bytes.end(), errorList.begin(), errorList.end());
    while (bytes.size() % 4 != 0)
        bytes.push_back(0);
    return bytes;
}

/* The definition of the checksum, bit by bit. */
KvUInt32 checksumOf(const std::string& bytes)
{
    KvUInt32 remainder = 0xFFFFFFFF;
    for (const char byte : bytes) {
        remainder ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < 8; ++bit)
            remainder = (remainder >> 1) ^ ((remainder & 1) != 0 ? 0xEDB88320U : 0U);
    }
    return ~remainder;
}

std::string whole(const char* directory, const char* fileName)
{
    return directory[0] == 0 ? fileName : std::string(directory) + "/" + fileName;
}

}  // namespace

const ScriptedFault* ScriptedFiles::note(KvUInt32 procedure, const unsigned char* arguments, std::size_t bytes)
{
    calls.push_back({procedure, Bytes(arguments, arguments + bytes)});
    const int number = ++m_counts[procedure];
    auto place = faults.find({procedure, number});
    if (place == faults.end())
        place = faults.find({procedure, 0});
    return place == faults.end() ? nullptr : &place->second;
}

Bytes ScriptedFiles::serve(KvUInt32 procedure, const unsigned char* arguments, std::size_t bytes)
{
    switch (procedure) {
        case PutBegin:
            return begin(arguments, bytes);
        case PutData:
            return take(arguments, bytes);
        case PutEnd:
            return end(arguments, bytes);
        case PutAbort:
            return abort(arguments, bytes);
        case Delete:
            return remove(arguments, bytes);
        default:
            return {};
    }
}

Bytes ScriptedFiles::result(KvUInt32 status) const
{
    return withList(units({status}), errorList);
}

Bytes ScriptedFiles::begin(const unsigned char* arguments, std::size_t bytes)
{
    Decoded<KvdaPutBegin, xdr_KvdaPutBegin> wanted;
    if (!wanted.from(arguments, bytes))
        return {};
    if (wanted.accessId != accessId)
        return withList(units({2, 0}), errorList);
    transferId = 100 + ++begun;
    name = whole(wanted.directory, wanted.fileName);
    announced = wanted.size;
    received.clear();
    return withList(units({0, transferId}), errorList);
}

Bytes ScriptedFiles::take(const unsigned char* arguments, std::size_t bytes)
{
    Decoded<KvdaPutData, xdr_KvdaPutData> data;
    if (!data.from(arguments, bytes))
        return {};
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    KvUInt32 status = 0;
    if (data.accessId != accessId)
        status = 2;
    else if (transferId == 0 || data.transferId != transferId)
        status = 6;
    else if (data.offset == received.size())
        received.append(data.data.data, data.data.size);
    else if (data.offset > received.size() ||
             received.compare(data.offset, data.data.size, data.data.data, data.data.size) != 0)
        status = 7;
    return withList(units({status, 0, static_cast<std::uint32_t>(received.size())}), errorList);
}

Bytes ScriptedFiles::end(const unsigned char* arguments, std::size_t bytes)
{
    Decoded<KvdaPutEnd, xdr_KvdaPutEnd> last;
    if (!last.from(arguments, bytes))
        return {};
    if (last.accessId != accessId)
        return result(2);
    if (transferId == 0)
        return result(last.transferId == m_finishedId && last.crc32 == m_checksum ? 0 : 6);
    if (last.transferId != transferId)
        return result(6);
    m_checksum = checksumOf(received);
    if (received.size() != announced || last.crc32 != m_checksum)
        return result(8);
    stored[name] = received;
    m_finishedId = transferId;
    transferId = 0;
    ++ended;
    return result(0);
}

Bytes ScriptedFiles::abort(const unsigned char* arguments, std::size_t bytes)
{
    Decoded<KvdaPutAbort, xdr_KvdaPutAbort> last;
    if (!last.from(arguments, bytes))
        return {};
    if (last.accessId != accessId)
        return result(2);
    if (transferId == 0 || last.transferId != transferId)
        return result(6);
    transferId = 0;
    return result(0);
}

Bytes ScriptedFiles::remove(const unsigned char* arguments, std::size_t bytes)
{
    Decoded<KvdaFileName, xdr_KvdaFileName> file;
    if (!file.from(arguments, bytes))
        return {};
    if (file.accessId != accessId)
        return result(2);
    return result(stored.erase(whole(file.directory, file.fileName)) != 0 ? 0 : 5);
}

std::vector<Bytes> ScriptedFiles::callsOf(KvUInt32 procedure) const
{
    std::vector<Bytes> all;
    for (const Call& call : calls)
        if (call.procedure == procedure)
            all.push_back(call.arguments);
    return all;
}

std::vector<KvUInt32> ScriptedFiles::procedures() const
{
    std::vector<KvUInt32> all;
    for (const Call& call : calls)
        all.push_back(call.procedure);
    return all;
}
