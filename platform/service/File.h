#pragma once

#include <span>
#include <string>

#include "platform/KvTypes.h"

namespace KvNService {

/** Why an operation on a file of a Directory failed. */
struct FileProblem
{
    enum class Kind
    {
        None,
        Missing,   ///< there is no regular file of that name
        Full,      ///< no space, or a quota or the largest size of a file is reached
        Unsynced,  ///< done, but perhaps lost when the power fails now
        System     ///< anything else
    };

    Kind kind = Kind::None;
    std::string text;  ///< what the system said, and about which file
};

/** An open descriptor, closed with it. */
class Descriptor
{
public:
    explicit Descriptor(int number) noexcept : m_number(number) {}
    Descriptor(Descriptor&& other) noexcept;
    Descriptor& operator=(Descriptor&& other) noexcept;
    ~Descriptor() { close(); }

    int get() const { return m_number; }
    explicit operator bool() const { return m_number >= 0; }
    /** Somebody else closes it. */
    void release() noexcept { m_number = -1; }
    /** False when closing failed, and so perhaps what was written before. */
    bool close() noexcept;

private:
    int m_number;
};

/** A regular file opened for reading. What was opened stays readable when its name is deleted or replaced. */
class ReadFile
{
public:
    /** `path` is for messages. */
    ReadFile(Descriptor file, KvUInt64 size, std::string path);

    /** Bytes that it had when it was opened. */
    KvUInt64 size() const { return m_size; }
    /** Fills `bytes` from `offset`; a file that ends before is a failure. Any thread. */
    bool read(KvUInt64 offset, std::span<unsigned char> bytes, FileProblem& problem) const;

private:
    Descriptor m_file;
    KvUInt64 m_size;
    std::string m_path;
};

/**
 * A file in the making, which has a name of its own until commit() gives it the name that it is for. Without commit()
 * nothing of it remains. sync() and syncFolder() may run on another thread than the rest, beside it.
 */
class UnfinishedFile
{
public:
    /** A file that is called `beside` in `folder` until it is called `name`; `path` is for messages. */
    UnfinishedFile(Descriptor folder, std::string beside, std::string name, std::string path);
    ~UnfinishedFile() { discard(); }
    UnfinishedFile(const UnfinishedFile&) = delete;
    UnfinishedFile& operator=(const UnfinishedFile&) = delete;

    /** Takes the empty file `beside`; false when there is none. */
    bool take(Descriptor file) noexcept;
    bool write(KvUInt64 offset, std::span<const unsigned char> bytes, FileProblem& problem);
    /** Reads what was written. */
    bool read(KvUInt64 offset, std::span<unsigned char> bytes, FileProblem& problem) const;
    /** Waits until what was written until now is on the disk. */
    bool sync(FileProblem& problem) const;
    /** Gives it its name; what had this name before is replaced. The name outlasts a power failure when syncFolder()
        has been called too. */
    bool commit(FileProblem& problem);
    /** Waits until the folder is on the disk. */
    bool syncFolder(FileProblem& problem) const;
    /** Removes it, unless commit() has been called. */
    void discard() noexcept;

private:
    Descriptor m_file{-1};
    Descriptor m_folder;
    std::string m_beside;
    std::string m_name;
    std::string m_path;        ///< for messages
    bool m_isPending = false;  ///< it is there and has its final name to come
};

/** Sets `problem` to what the system's last error means for `what` ("cannot write") with the file at `path`; false. */
bool failed(FileProblem& problem, const char* what, const std::string& path);

/** Writes or reads all of `bytes` at `offset`; false with errno set, which is 0 when the file ends before. */
bool writeAt(int file, KvUInt64 offset, std::span<const unsigned char> bytes);
bool readAt(int file, KvUInt64 offset, std::span<unsigned char> bytes);

}  // namespace KvNService
