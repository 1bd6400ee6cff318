#include "storage/GzipFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "model/Errors.h"

namespace tarnbridge {

namespace {
constexpr std::size_t kCompressedChunk = 256 * 1024;
} // namespace

struct InputFile::Inflater {
    z_stream stream{};
    std::vector<unsigned char> input = std::vector<unsigned char>(kCompressedChunk);
    bool ended = false;     // the input file has no more bytes
    bool memberDone = false; // the last gzip member ended cleanly
    bool initialized = false;
    ~Inflater()
    {
        if (initialized)
            inflateEnd(&stream);
    }
};

InputFile::InputFile(const std::string& path)
{
    fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd_ < 0)
        throw systemError(errno);
    struct stat info {};
    if (::fstat(fd_, &info) != 0) {
        const int error = errno;
        ::close(fd_);
        throw systemError(error);
    }
    if (S_ISDIR(info.st_mode)) {
        ::close(fd_);
        throw TarnbridgeError("\"" + path + "\" is a folder, not a scan file.");
    }
    regular_ = S_ISREG(info.st_mode);
    auto inflater = std::make_unique<Inflater>();
    // Two bytes tell; a pipe may hand them over one at a time. They are kept, not sought back
    // to, so that a pipe reads as well as a file.
    std::size_t got = 0;
    try {
        while (got < 2) {
            const std::size_t n = readRaw(reinterpret_cast<char*>(inflater->input.data()) + got, 2 - got);
            if (n == 0)
                break;
            got += n;
        }
    } catch (...) {
        ::close(fd_);
        fd_ = -1;
        throw;
    }
    const std::string_view magic(reinterpret_cast<const char*>(inflater->input.data()), got);
    if (!isGzip(magic)) {
        head_.assign(magic);
        return;
    }
    // 15 + 16: a gzip wrapper, the largest window.
    if (inflateInit2(&inflater->stream, 15 + 16) != Z_OK) {
        ::close(fd_);
        throw std::bad_alloc();
    }
    inflater->initialized = true;
    inflater->stream.next_in = inflater->input.data();
    inflater->stream.avail_in = uInt(got);
    inflater_ = std::move(inflater);
}

InputFile::~InputFile()
{
    if (fd_ >= 0)
        ::close(fd_);
}

std::size_t InputFile::readRaw(char* buffer, std::size_t size)
{
    for (;;) {
        const ssize_t n = ::read(fd_, buffer, size);
        if (n >= 0)
            return std::size_t(n);
        if (errno != EINTR)
            throw systemError(errno);
    }
}

std::size_t InputFile::read(char* buffer, std::size_t size)
{
    if (inflater_)
        return inflate(buffer, size);
    if (!head_.empty() && size > 0) {
        const std::size_t n = std::min(size, head_.size());
        std::memcpy(buffer, head_.data(), n);
        head_.erase(0, n);
        return n;
    }
    return readRaw(buffer, size);
}

std::size_t PrefixedSource::read(char* buffer, std::size_t size)
{
    if (given_ < head_.size()) {
        const std::size_t n = std::min(size, head_.size() - given_);
        std::memcpy(buffer, head_.data() + given_, n);
        given_ += n;
        return n;
    }
    return rest_.read(buffer, size);
}

std::size_t InputFile::inflate(char* buffer, std::size_t size)
{
    Inflater& z = *inflater_;
    z.stream.next_out = reinterpret_cast<unsigned char*>(buffer);
    z.stream.avail_out = uInt(std::min<std::size_t>(size, 1u << 30));
    while (z.stream.avail_out > 0) {
        if (z.stream.avail_in == 0 && !z.ended) {
            const std::size_t got = readRaw(reinterpret_cast<char*>(z.input.data()), z.input.size());
            z.ended = got == 0;
            z.stream.next_in = z.input.data();
            z.stream.avail_in = uInt(got);
        }
        if (z.stream.avail_in == 0 && z.ended) {
            if (!z.memberDone)
                throw TarnbridgeError("The compressed file ends too early: it was cut off.");
            break;
        }
        if (z.memberDone) {
            // Another gzip member follows the one that ended.
            if (inflateReset(&z.stream) != Z_OK)
                throw TarnbridgeError("The compressed file is damaged.");
            z.memberDone = false;
        }
        const int result = ::inflate(&z.stream, Z_NO_FLUSH);
        if (result == Z_STREAM_END) {
            z.memberDone = true;
        } else if (result == Z_MEM_ERROR) {
            throw std::bad_alloc();
        } else if (result != Z_OK && result != Z_BUF_ERROR) {
            throw TarnbridgeError("The compressed file is damaged: its gzip data is broken.");
        }
    }
    return size - z.stream.avail_out;
}

std::size_t MemorySource::read(char* buffer, std::size_t size)
{
    const std::size_t n = std::min(size, text_.size());
    std::memcpy(buffer, text_.data(), n);
    text_.remove_prefix(n);
    return n;
}

struct GzipWriter::Deflater {
    z_stream stream{};
    std::vector<unsigned char> output = std::vector<unsigned char>(kCompressedChunk);
    bool finished = false;
    bool initialized = false;
    ~Deflater()
    {
        if (initialized)
            deflateEnd(&stream);
    }
};

GzipWriter::GzipWriter(Sink sink, void* context, int level)
    : deflater_(std::make_unique<Deflater>()), sink_(sink), context_(context)
{
    if (deflateInit2(&deflater_->stream, level, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        throw std::bad_alloc();
    deflater_->initialized = true;
}

GzipWriter::~GzipWriter() = default;

void GzipWriter::pump(int flush)
{
    z_stream& s = deflater_->stream;
    for (;;) {
        s.next_out = deflater_->output.data();
        s.avail_out = uInt(deflater_->output.size());
        const int result = deflate(&s, flush);
        if (result == Z_STREAM_ERROR)
            throw std::logic_error("GzipWriter: deflate failed");
        const std::size_t produced = deflater_->output.size() - s.avail_out;
        if (produced)
            sink_(context_, reinterpret_cast<const char*>(deflater_->output.data()), produced);
        if (flush == Z_FINISH ? result == Z_STREAM_END : s.avail_out != 0)
            return;
    }
}

void GzipWriter::write(const char* data, std::size_t size)
{
    z_stream& s = deflater_->stream;
    while (size > 0) {
        const std::size_t piece = std::min<std::size_t>(size, 1u << 30);
        s.next_in = reinterpret_cast<unsigned char*>(const_cast<char*>(data));
        s.avail_in = uInt(piece);
        pump(Z_NO_FLUSH);
        data += piece;
        size -= piece;
    }
}

void GzipWriter::finish()
{
    if (deflater_->finished)
        return;
    deflater_->stream.avail_in = 0;
    pump(Z_FINISH);
    deflater_->finished = true;
}

} // namespace tarnbridge
