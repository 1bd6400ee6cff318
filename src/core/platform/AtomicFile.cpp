#include "platform/AtomicFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "model/Errors.h"
#include "model/PathText.h"
#include "platform/FileIO.h"

namespace tarnbridge {

namespace {

mode_t creationMode()
{
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return 0666 & ~mask;
}

} // namespace

std::string parentFolder(const std::string& path)
{
    const auto slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

AtomicFile::AtomicFile(std::string destination, const std::string& temporaryName)
    : destination_(std::move(destination))
{
    const std::string folder = parentFolder(destination_);
    if (temporaryName.empty()) {
        std::string hidden(".");
        hidden.append(PathText::name(destination_)).append(".XXXXXX");
        temporary_ = PathText::join(folder, hidden);
        fd_ = ::mkostemp(temporary_.data(), O_CLOEXEC);
    } else {
        temporary_ = PathText::join(folder, temporaryName);
        fd_ = ::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    }
    if (fd_ < 0)
        throw systemError(errno, "Could not save " + destination_);
    // mkostemp makes 0600; a saved file gets the permissions any new file of the user gets.
    if (::fchmod(fd_, creationMode()) != 0) {
        const int error = errno;
        ::close(fd_);
        ::unlink(temporary_.c_str());
        throw systemError(error, "Could not save " + destination_);
    }
}

AtomicFile::~AtomicFile()
{
    if (fd_ >= 0)
        ::close(fd_);
    if (!committed_)
        ::unlink(temporary_.c_str());
}

void AtomicFile::write(std::string_view bytes)
{
    platform::writeFully(fd_, bytes.data(), bytes.size());
}

void AtomicFile::commit()
{
    const std::string doing = "Could not save " + destination_;
    if (::fsync(fd_) != 0)
        throw systemError(errno, doing);
    const int closed = ::close(fd_);
    fd_ = -1;
    if (closed != 0)
        throw systemError(errno, doing);
    if (::rename(temporary_.c_str(), destination_.c_str()) != 0)
        throw systemError(errno, doing);
    committed_ = true;
}

void AtomicFile::write(const std::string& destination, std::string_view bytes)
{
    AtomicFile file(destination);
    file.write(bytes);
    file.commit();
}

} // namespace tarnbridge
