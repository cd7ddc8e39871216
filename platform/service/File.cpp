#include "platform/service/File.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <limits>
#include <utility>

#include "platform/service/SystemCall.h"

namespace KvNService {

namespace {

FileProblem::Kind kindOf(int error)
{
    switch (error) {
        case ENOENT:
        case ELOOP:
            return FileProblem::Kind::Missing;
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return FileProblem::Kind::Full;
        default:
            return FileProblem::Kind::System;
    }
}

/** Whether the system can name the last of `bytes` bytes at `offset`; errno is set when not. */
bool isInRange(KvUInt64 offset, std::size_t bytes)
{
    constexpr auto most = static_cast<KvUInt64>(std::numeric_limits<off_t>::max());
    if (offset <= most && bytes <= most - offset)
        return true;
    errno = EFBIG;
    return false;
}

}  // namespace

bool failed(FileProblem& problem, const char* what, const std::string& path)
{
    const int error = errno;
    problem.text = std::string(what) + " " + path + ": " + (error == 0 ? "it became shorter" : reason(error));
    problem.kind = kindOf(error);
    return false;
}

bool writeAt(int file, KvUInt64 offset, std::span<const unsigned char> bytes)
{
    if (!isInRange(offset, bytes.size()))
        return false;
    while (!bytes.empty()) {
        const ssize_t written =
            retried([&] { return ::pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(offset)); });
        if (written < 0)
            return false;
        bytes = bytes.subspan(static_cast<std::size_t>(written));
        offset += static_cast<std::size_t>(written);
    }
    return true;
}

bool readAt(int file, KvUInt64 offset, std::span<unsigned char> bytes)
{
    if (!isInRange(offset, bytes.size()))
        return false;
    while (!bytes.empty()) {
        const ssize_t got =
            retried([&] { return ::pread(file, bytes.data(), bytes.size(), static_cast<off_t>(offset)); });
        if (got == 0)
            errno = 0;
        if (got <= 0)
            return false;
        bytes = bytes.subspan(static_cast<std::size_t>(got));
        offset += static_cast<std::size_t>(got);
    }
    return true;
}

Descriptor::Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept
{
    if (this != &other) {
        close();
        m_number = std::exchange(other.m_number, -1);
    }
    return *this;
}

bool Descriptor::close() noexcept
{
    if (m_number < 0)
        return true;
    // Not repeated when interrupted: the descriptor is gone then.
    return ::close(std::exchange(m_number, -1)) == 0 || errno == EINTR;
}

ReadFile::ReadFile(Descriptor file, KvUInt64 size, std::string path)
    : m_file(std::move(file)), m_size(size), m_path(std::move(path))
{}

bool ReadFile::read(KvUInt64 offset, std::span<unsigned char> bytes, FileProblem& problem) const
{
    return readAt(m_file.get(), offset, bytes) || failed(problem, "cannot read", m_path);
}

UnfinishedFile::UnfinishedFile(Descriptor folder, std::string beside, std::string name, std::string path)
    : m_folder(std::move(folder)), m_beside(std::move(beside)), m_name(std::move(name)), m_path(std::move(path))
{}

bool UnfinishedFile::take(Descriptor file) noexcept
{
    m_file = std::move(file);
    m_isPending = static_cast<bool>(m_file);
    return m_isPending;
}

bool UnfinishedFile::write(KvUInt64 offset, std::span<const unsigned char> bytes, FileProblem& problem)
{
    return writeAt(m_file.get(), offset, bytes) || failed(problem, "cannot write", m_path);
}

bool UnfinishedFile::read(KvUInt64 offset, std::span<unsigned char> bytes, FileProblem& problem) const
{
    return readAt(m_file.get(), offset, bytes) || failed(problem, "cannot read", m_path);
}

bool UnfinishedFile::sync(FileProblem& problem) const
{
    return retried([&] { return ::fsync(m_file.get()); }) == 0 || failed(problem, "cannot sync", m_path);
}

bool UnfinishedFile::commit(FileProblem& problem)
{
    if (::renameat(m_folder.get(), m_beside.c_str(), m_folder.get(), m_name.c_str()) != 0)
        return failed(problem, "cannot rename to", m_path);
    m_isPending = false;
    return true;
}

bool UnfinishedFile::syncFolder(FileProblem& problem) const
{
    if (retried([&] { return ::fsync(m_folder.get()); }) == 0)
        return true;
    failed(problem, "cannot sync the folder of", m_path);
    problem.text += "; it is in its place, which a power failure can undo";
    problem.kind = FileProblem::Kind::Unsynced;
    return false;
}

void UnfinishedFile::discard() noexcept
{
    if (std::exchange(m_isPending, false))
        ::unlinkat(m_folder.get(), m_beside.c_str(), 0);
}

}  // namespace KvNService
