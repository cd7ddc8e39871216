#pragma once

#include <memory>
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
    /** False when closing failed, and so perhaps what was written before. */
    bool close() noexcept;

private:
    int m_number;
};

/** A regular file opened for reading. What was opened stays readable when its name is deleted or replaced. */
class ReadFile
{
public:
    /** `name` is for messages. */
    ReadFile(Descriptor file, KvUInt64 size, std::string name);

    /** Bytes that it had when it was opened. */
    KvUInt64 size() const { return m_size; }
    /** Fills `bytes` from `offset`; a file that ends before is a failure. Any thread. */
    bool read(KvUInt64 offset, std::span<unsigned char> bytes, FileProblem& problem) const;

private:
    Descriptor m_file;
    KvUInt64 m_size;
    std::string m_name;
};

/**
 * A file in the making, which has a name of its own until commit() gives it the name that it is for. Without commit()
 * nothing of it remains. sync() may run on another thread than the rest.
 */
class UnfinishedFile
{
public:
    /** Takes the file, `beside` in `folder`, and makes its name `name` in the end. */
    UnfinishedFile(Descriptor file, Descriptor folder, std::string beside, std::string name, std::string path);
    ~UnfinishedFile();
    UnfinishedFile(const UnfinishedFile&) = delete;
    UnfinishedFile& operator=(const UnfinishedFile&) = delete;

    bool write(KvUInt64 offset, std::span<const unsigned char> bytes, FileProblem& problem);
    /** Reads what was written. */
    bool read(KvUInt64 offset, std::span<unsigned char> bytes, FileProblem& problem) const;
    /** Waits until what was written until now is on the disk. */
    bool sync(FileProblem& problem) const;
    /** Gives it its name; what had this name before is replaced. The name lasts when syncFolder() has been called too.
     */
    bool commit(FileProblem& problem);
    /** Waits until the folder is on the disk. */
    bool syncFolder(FileProblem& problem) const;
    /** Removes it, unless commit() has been called. */
    void discard() noexcept;

private:
    Descriptor m_file;
    Descriptor m_folder;
    std::string m_beside;  ///< empty: committed or discarded
    std::string m_name;
    std::string m_path;  ///< for messages
};

}  // namespace KvNService
