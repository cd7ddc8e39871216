#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

/** A path of characters that need one byte each, as the system takes it. */
inline std::string narrow(const std::wstring& path)
{
    std::string bytes;
    for (const wchar_t character : path)
        bytes.push_back(static_cast<char>(character));
    return bytes;
}

/** When a file was last written to, in seconds. */
inline void setWritten(const std::wstring& path, long seconds)
{
    const timespec times[2] = {{seconds, 0}, {seconds, 0}};
    EXPECT_EQ(::utimensat(AT_FDCWD, narrow(path).c_str(), times, 0), 0);
}

/** A folder of the test's own, removed with the object. */
class Folder
{
public:
    Folder()
    {
        std::string pattern = testing::TempDir() + "kv-dal-XXXXXX";
        m_path = ::mkdtemp(pattern.data());
    }
    ~Folder() { std::filesystem::remove_all(m_path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    /** Where `name` is, or would be. */
    std::wstring path(const std::string& name) const
    {
        const std::string bytes = m_path + "/" + name;
        return std::wstring(bytes.begin(), bytes.end());
    }
    /** Makes a file. */
    std::wstring file(const std::string& name, const std::string& content) const
    {
        std::ofstream(m_path + "/" + name, std::ios::binary) << content;
        return path(name);
    }
    const std::string& bytes() const { return m_path; }

private:
    std::string m_path;
};
