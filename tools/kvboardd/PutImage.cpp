#include "tools/kvboardd/PutImage.h"

#include <utility>

#include "base/Report.h"
#include "platform/service/File.h"
#include "tools/kvboardd/Files.h"
#include "tools/kvboardd/Log.h"

namespace KvNBoardService {

std::unique_ptr<ImageSource> PutImage::open(KvCErrorListPool& errors, Files& files, std::string_view path)
{
    std::string problem;
    std::unique_ptr<KvNService::ReadFile> file;
    Files::Outcome outcome = files.open(path, file, problem);
    std::unique_ptr<PutImage> image;
    if (outcome == Files::Outcome::Done) {
        image.reset(new PutImage(files, std::string(path), std::move(file)));
        outcome = files.setBusy(path, true);
    }
    if (outcome == Files::Outcome::Done)
        return image;
    if (outcome == Files::Outcome::BadName)
        KV_REPORT(errors, BoardBadFileName, "PutImage::open", shown(path));
    else if (outcome == Files::Outcome::NotFound)
        KV_REPORT(errors, BoardNoFile, "PutImage::open", shown(path));
    else
        KV_REPORT(errors, BoardFileTrouble, "PutImage::open", problem);
    return nullptr;
}

PutImage::PutImage(Files& files, std::string path, std::unique_ptr<KvNService::ReadFile> file)
    : m_files(files), m_path(std::move(path)), m_file(std::move(file))
{}

PutImage::~PutImage()
{
    m_files.setBusy(m_path, false);
}

KvUInt64 PutImage::size() const
{
    return m_file->size();
}

bool PutImage::read(KvUInt64 offset, std::span<unsigned char> bytes, std::string& problem) const
{
    KvNService::FileProblem why;
    if (m_file->read(offset, bytes, why))
        return true;
    problem = std::move(why.text);
    return false;
}

}  // namespace KvNBoardService
