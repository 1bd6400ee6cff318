#include <ostream>

#include "Cli.h"
#include "Terminal.h"
#include "scan/DiskScanner.h"
#include "storage/NcduJson.h"
#include "storage/ScanFile.h"
#include "storage/ScanJson.h"

namespace tarnbridge::cli {

namespace {

SizeMeasure measureOf(const Arguments& args)
{
    return args.has("logical") ? SizeMeasure::logical : SizeMeasure::allocated;
}

int scanCommand(const Arguments& args, Context& context)
{
    const std::size_t top = std::size_t(args.integer("top", 10, 0, 1000000));
    const ScanResult scan = obtainScan(args, context, args.positionals.at(0));
    if (const auto json = args.value("json"))
        ScanJson::writeFile(scan, *json);
    if (const auto ncdu = args.value("ncdu-json"))
        NcduJson::writeFile(scan, *ncdu);
    printSummary(scan, ScanData::rootId, measureOf(args), top, context.out);
    return exitOk;
}

int showCommand(const Arguments& args, Context& context)
{
    const std::size_t top = std::size_t(args.integer("top", 10, 0, 1000000));
    const ScanResult scan = ScanFile::open(args.positionals.at(0));
    printSummary(scan, ScanData::rootId, measureOf(args), top, context.out);
    return exitOk;
}

} // namespace

std::vector<Command> scanCommands()
{
    return {
        {{"scan",
          "PATH [--logical] [--json FILE] [--ncdu-json FILE] [--top N] [--quiet]",
          "Scan a folder or volume and show its totals and largest items.",
          {{"logical", "", "Rank by logical size instead of size on disk."},
           {"json", "FILE", "Also save the whole scan as a scan file."},
           {"ncdu-json", "FILE", "Also save it as an ncdu export, for \"ncdu -f\" (gzip when FILE ends in .gz)."},
           {"top", "N", "How many of the largest items to list (default 10)."},
           {"quiet", "", "No progress line."}},
          1,
          1},
         scanCommand},
        {{"show",
          "FILE [--logical] [--top N]",
          "Show the totals and largest items of a scan file or an ncdu or gdu export.",
          {{"logical", "", "Rank by logical size instead of size on disk."},
           {"top", "N", "How many of the largest items to list (default 10)."}},
          1,
          1},
         showCommand},
    };
}

} // namespace tarnbridge::cli
