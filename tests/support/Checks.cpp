#include "support/Checks.h"

#include <sys/stat.h>

#include <fstream>
#include <random>
#include <sstream>

#include "platform/UserFolders.h"
#include "scan/DiskScanner.h"

namespace tarnbridge::test {

ScanResult scanOf(const std::string& root)
{
    CancellationFlag flag;
    return DiskScanner::scan(root, flag);
}

std::string randomBytes(std::size_t size, unsigned seed)
{
    std::mt19937 random(seed);
    std::string out(size, '\0');
    for (char& c : out)
        c = char(random() & 0xff);
    return out;
}

CleanupEntry stage(const ScanResult& scan, const std::string& path)
{
    return CleanupEntry::stage(*scan.node(path), scan, "test", CleanupPolicy{platform::currentHome()});
}

bool exists(const std::string& path)
{
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0;
}

std::string readText(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

} // namespace tarnbridge::test
