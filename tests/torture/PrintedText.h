#pragma once

#include <cstdio>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

/** While it lives, what goes to standard output is kept here instead. */
class PrintedText
{
public:
    PrintedText() : m_file(memfd_create("printed", MFD_CLOEXEC)), m_output(dup(STDOUT_FILENO))
    {
        std::fflush(stdout);
        dup2(m_file, STDOUT_FILENO);
    }
    ~PrintedText()
    {
        std::fflush(stdout);
        dup2(m_output, STDOUT_FILENO);
        close(m_output);
        close(m_file);
    }
    PrintedText(const PrintedText&) = delete;
    PrintedText& operator=(const PrintedText&) = delete;

    /** Forgets what was printed. */
    void clear()
    {
        std::fflush(stdout);
        if (ftruncate(m_file, 0) == 0)
            lseek(m_file, 0, SEEK_SET);
    }
    std::string text() const
    {
        std::fflush(stdout);
        std::string text(static_cast<std::size_t>(lseek(m_file, 0, SEEK_CUR)), '\0');
        const ssize_t got = pread(m_file, text.data(), text.size(), 0);
        return got == static_cast<ssize_t>(text.size()) ? text : "not read";
    }

private:
    const int m_file;
    const int m_output;
};
