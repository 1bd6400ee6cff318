#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace tarnbridge {

// Where a reader takes its bytes from, in order.
class ByteSource {
public:
    virtual ~ByteSource() = default;
    // Up to `size` bytes into `buffer`; 0 only at the end. Throws on a read failure.
    virtual std::size_t read(char* buffer, std::size_t size) = 0;
};

// The bytes of a file, inflated on the way when the file starts with the gzip magic bytes
// (concatenated gzip members are read one after the other).
class InputFile : public ByteSource {
public:
    explicit InputFile(const std::string& path);
    ~InputFile() override;
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    std::size_t read(char* buffer, std::size_t size) override;
    bool compressed() const { return inflater_ != nullptr; }
    // A regular file, not a pipe or a device.
    bool regular() const { return regular_; }

private:
    std::size_t readRaw(char* buffer, std::size_t size);
    std::size_t inflate(char* buffer, std::size_t size);

    int fd_ = -1;
    bool regular_ = false;
    std::string head_; // bytes read to look for the gzip magic, not yet handed out
    struct Inflater;
    std::unique_ptr<Inflater> inflater_;
};

// `head`, then the rest of `rest`: what was read ahead to tell formats apart, put back.
class PrefixedSource : public ByteSource {
public:
    PrefixedSource(std::string head, ByteSource& rest) : head_(std::move(head)), rest_(rest) {}
    std::size_t read(char* buffer, std::size_t size) override;

private:
    std::string head_;
    std::size_t given_ = 0;
    ByteSource& rest_;
};

// A text already in memory.
class MemorySource : public ByteSource {
public:
    explicit MemorySource(std::string_view text) : text_(text) {}
    std::size_t read(char* buffer, std::size_t size) override;

private:
    std::string_view text_;
};

// Compresses what it is given into gzip and hands the compressed bytes on.
class GzipWriter {
public:
    using Sink = void (*)(void* context, const char* data, std::size_t size);
    GzipWriter(Sink sink, void* context, int level = 3);
    ~GzipWriter();
    GzipWriter(const GzipWriter&) = delete;
    GzipWriter& operator=(const GzipWriter&) = delete;

    void write(const char* data, std::size_t size);
    // Writes the gzip trailer; nothing may be written after.
    void finish();

private:
    void pump(int flush);

    struct Deflater;
    std::unique_ptr<Deflater> deflater_;
    Sink sink_;
    void* context_;
};

// Whether `bytes` begin with the gzip magic (1f 8b).
inline bool isGzip(std::string_view bytes)
{
    return bytes.size() >= 2 && std::uint8_t(bytes[0]) == 0x1f && std::uint8_t(bytes[1]) == 0x8b;
}

} // namespace tarnbridge
