#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "tools/kvboardd/Image.h"

class KvCErrorListPool;

namespace KvNService {
class ReadFile;
}

namespace KvNBoardService {

class Files;

/** An image that was put on the board as a file. As long as it lives, the file is busy. */
class PutImage : public ImageSource
{
public:
    /** Opens the file with that path; null, and reported, when this cannot be done. `files` must outlive it. */
    static std::unique_ptr<ImageSource> open(KvCErrorListPool& errors, Files& files, std::string_view path);
    ~PutImage() override;
    PutImage(const PutImage&) = delete;
    PutImage& operator=(const PutImage&) = delete;

    KvUInt64 size() const override;
    bool read(KvUInt64 offset, std::span<unsigned char> bytes, std::string& problem) const override;

private:
    PutImage(Files& files, std::string path, std::unique_ptr<KvNService::ReadFile> file);

    Files& m_files;
    std::string m_path;
    std::unique_ptr<KvNService::ReadFile> m_file;
};

}  // namespace KvNBoardService
