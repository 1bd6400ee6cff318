#pragma once

#include <string>
#include <string_view>

namespace tarnbridge {

// A file that replaces `destination` only once it is complete and on disk: the bytes go to a
// hidden temporary in the destination's folder, and `commit` syncs and renames it over the
// destination in one step. Any other way out removes the temporary, so a reader sees the old
// file or the new one, never half of one.
class AtomicFile {
public:
    // `temporaryName` is the temporary's name in the destination's folder; it is created with
    // O_EXCL, so an existing file of that name is never touched. Empty: ".NAME.XXXXXX".
    explicit AtomicFile(std::string destination, const std::string& temporaryName = {});
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    void write(std::string_view bytes);
    void commit();

    const std::string& temporaryPath() const { return temporary_; }

    // The whole file at once.
    static void write(const std::string& destination, std::string_view bytes);

private:
    std::string destination_;
    std::string temporary_;
    int fd_ = -1;
    bool committed_ = false;
};

// The folder part of a path ("." for a bare name, "/" for a name at the root).
std::string parentFolder(const std::string& path);

} // namespace tarnbridge
