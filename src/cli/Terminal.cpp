#include "Terminal.h"

#include <QLocale>
#include <QString>

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ostream>

#include "model/Formatting.h"
#include "model/PathText.h"
#include "model/ScanPaths.h"
#include "model/TextEncoding.h"
#include "scan/DiskScanner.h"
#include "storage/ScanFile.h"

namespace tarnbridge::cli {

namespace {
std::size_t displayWidth(std::string_view text)
{
    std::size_t width = 0;
    for (unsigned char c : text)
        if ((c & 0xC0) != 0x80)
            ++width;
    return width;
}
} // namespace

std::string shown(std::string_view bytes)
{
    if (isValidUtf8(bytes))
        return std::string(bytes);
    return displayText(bytes).toStdString();
}

std::string withSeparators(std::int64_t value)
{
    return QLocale().toString(qint64(value)).toStdString();
}

Table::Table(std::vector<std::pair<std::string, Align>> columns) : columns_(std::move(columns)) {}

void Table::add(std::vector<std::string> cells)
{
    cells.resize(columns_.size());
    rows_.push_back(std::move(cells));
}

void Table::print(std::ostream& out, std::string_view indent) const
{
    std::vector<std::size_t> widths(columns_.size());
    for (std::size_t c = 0; c < columns_.size(); ++c) {
        widths[c] = displayWidth(columns_[c].first);
        for (const auto& row : rows_)
            widths[c] = std::max(widths[c], displayWidth(row[c]));
    }
    auto line = [&](const std::vector<std::string>& cells) {
        std::string text(indent);
        for (std::size_t c = 0; c < cells.size(); ++c) {
            const std::size_t pad = widths[c] - displayWidth(cells[c]);
            const bool last = c + 1 == cells.size();
            if (columns_[c].second == Align::right)
                text.append(pad, ' ').append(cells[c]);
            else
                text.append(cells[c]).append(last ? 0 : pad, ' ');
            if (!last)
                text.append("  ");
        }
        out << text << '\n';
    };
    std::vector<std::string> header;
    bool titled = false;
    for (const auto& column : columns_) {
        header.push_back(column.first);
        titled = titled || !column.first.empty();
    }
    if (titled)
        line(header);
    for (const auto& row : rows_)
        line(row);
}

namespace {
// Keeps the line within a common terminal width so that \r redraws it in place.
constexpr std::size_t kLineWidth = 110;

std::string middleCut(const std::string& text, std::size_t width)
{
    if (displayWidth(text) <= width)
        return text;
    const QString q = QString::fromStdString(text);
    const qsizetype keep = qsizetype(width > 1 ? width - 1 : 0);
    return (q.left(keep / 2) + QStringLiteral("…") + q.right(keep - keep / 2)).toStdString();
}
} // namespace

void ProgressLine::show(const ScanProgress& p)
{
    if (!context_.progressOnTerminal)
        return;
    const double rate = p.duration > 0 ? double(p.files + p.folders) / p.duration : 0;
    const std::string counts = withSeparators(p.files) + " files · " + withSeparators(p.folders) +
                               " folders · " + formattedBytes(p.bytes) + " · " +
                               withSeparators(std::int64_t(rate)) + " entries/s · ";
    const std::size_t used = displayWidth(counts);
    show(counts + middleCut(shown(p.path), used < kLineWidth - 10 ? kLineWidth - used : 10));
}

void ProgressLine::show(const std::string& text)
{
    if (!context_.progressOnTerminal)
        return;
    context_.err << "\r\033[K" << middleCut(text, kLineWidth) << std::flush;
    drawn_ = true;
}

void ProgressLine::clear()
{
    if (drawn_)
        context_.err << "\r\033[K" << std::flush;
    drawn_ = false;
}

std::string absolutePath(const std::string& path)
{
    if (!path.empty() && path.front() == '/')
        return ScanPaths::normalize(path);
    char* cwd = ::getcwd(nullptr, 0);
    const std::string here = cwd ? cwd : "/";
    std::free(cwd);
    return ScanPaths::normalize(PathText::join(here, path));
}

ScanResult obtainScan(const Arguments& args, Context& context, const std::string& path)
{
    if (const auto from = args.value("from"))
        return ScanFile::open(*from);
    ProgressLine line(context);
    const bool quiet = args.has("quiet");
    return DiskScanner::scan(path, context.cancellation, nullptr, [&](const ScanProgress& p) {
        if (!quiet)
            line.show(p);
    });
}

void printSummary(const ScanResult& scan, NodeId folder, SizeMeasure measure, std::size_t top,
                  std::ostream& out)
{
    const ScanData& d = scan.data();
    const NodeRecord& r = d[folder];
    out << shown(d.path(folder)) << '\n';
    Table totals({{"", Align::left}, {"", Align::right}});
    totals.add({"Size on disk", formattedBytes(r.allocatedSize)});
    totals.add({"Logical size", formattedBytes(r.logicalSize)});
    if (r.compressedSavings > 0)
        totals.add({"Compression savings", formattedBytes(r.compressedSavings)});
    totals.add({"Files", withSeparators(r.fileCount)});
    totals.add({"Folders", withSeparators(r.folderCount)});
    totals.add({"Skipped", withSeparators(scan.skippedCount()) +
                               (scan.skippedCount() ? " (" + withSeparators(std::int64_t(scan.issues().size())) +
                                                          " listed)"
                                                    : std::string())});
    totals.add({"Scan time", QLocale().toString(scan.duration(), 'f', 2).toStdString() + " s"});
    totals.print(out, "  ");

    const auto children = scan.sortedChildren(folder, measure);
    if (children.empty() || top == 0)
        return;
    out << '\n';
    Table table({{measure == SizeMeasure::logical ? "Logical size" : "Size on disk", Align::right},
                 {"Share", Align::right},
                 {"Files", Align::right},
                 {"Name", Align::left}});
    const std::int64_t total = r.bytes(measure);
    for (std::size_t i = 0; i < children.size() && i < top; ++i) {
        const NodeRecord& c = d[children[i]];
        std::string name = shown(d.name(children[i]));
        if (c.isDirectory())
            name += '/';
        table.add({formattedBytes(c.bytes(measure)), formattedShare(c.bytes(measure), total),
                   withSeparators(c.fileCount), name});
    }
    table.print(out, "  ");
    if (children.size() > top)
        out << "  … and " << withSeparators(std::int64_t(children.size() - top)) << " more\n";
}

} // namespace tarnbridge::cli
