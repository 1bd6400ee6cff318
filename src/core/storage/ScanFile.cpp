#include "storage/ScanFile.h"

#include "model/Errors.h"
#include "storage/GzipFile.h"
#include "storage/NcduJson.h"
#include "storage/ScanJson.h"

namespace tarnbridge::ScanFile {

ScanResult open(const std::string& path)
{
    // The first byte that is not white space tells the formats apart: our scan file is one
    // object, an export one array. Read once, so that a pipe opens as well as a file.
    InputFile file(path);
    std::string head(512, '\0');
    std::size_t got = 0;
    while (got < head.size()) {
        const std::size_t n = file.read(head.data() + got, head.size() - got);
        if (n == 0)
            break;
        got += n;
    }
    head.resize(got);
    std::string_view text(head);
    if (text.starts_with("\xEF\xBB\xBF"))
        text.remove_prefix(3);
    const auto at = text.find_first_not_of(" \t\r\n");
    const char first = at == std::string_view::npos ? 0 : text[at];
    if (first == '[') {
        PrefixedSource source(std::move(head), file);
        return NcduJson::read(source);
    }
    if (first == '{') {
        if (file.regular() && !file.compressed())
            return ScanJson::readFile(path); // its own reader, straight into a large buffer
        char chunk[1 << 16];
        while (const std::size_t n = file.read(chunk, sizeof chunk))
            head.append(chunk, n);
        return ScanJson::parse(head);
    }
    throw TarnbridgeError("This file is neither a Tarnbridge scan file nor an ncdu or gdu export "
                          "(made with \"ncdu -o\" or \"gdu -o\").");
}

} // namespace tarnbridge::ScanFile
