#include <QGuiApplication>
#include <QImage>
#include <QImageWriter>
#include <QPainter>
#include <QSvgGenerator>

#include <ostream>

#include "Cli.h"
#include "QueryOptions.h"
#include "Terminal.h"
#include "model/Errors.h"
#include "model/PathText.h"
#include "platform/AtomicFile.h"
#include "visual/GraphScene.h"

namespace tarnbridge::cli {

namespace {

StorageView viewFrom(const std::string& name)
{
    const std::pair<const char*, StorageView> views[] = {{"treemap", StorageView::treemap},
                                                         {"sunburst", StorageView::sunburst},
                                                         {"flame", StorageView::flame},
                                                         {"bubbles", StorageView::bubbles},
                                                         {"mindmap", StorageView::mindMap}};
    for (const auto& [word, view] : views)
        if (name == word)
            return view;
    throw UsageError("--view takes treemap, sunburst, flame, bubbles or mindmap.");
}

QSize sizeFrom(const std::string& text)
{
    const auto x = text.find('x');
    bool okWidth = false, okHeight = false;
    const int width = x == std::string::npos ? 0 : QString::fromStdString(text.substr(0, x)).toInt(&okWidth);
    const int height = x == std::string::npos ? 0 : QString::fromStdString(text.substr(x + 1)).toInt(&okHeight);
    if (!okWidth || !okHeight || width < 32 || height < 32 || width > 20000 || height > 20000)
        throw UsageError("--size takes WIDTHxHEIGHT, each from 32 to 20000 (for example 1600x1000).");
    return {width, height};
}

int renderCommand(const Arguments& args, Context& context)
{
    if (!qobject_cast<QGuiApplication*>(QCoreApplication::instance()))
        throw TarnbridgeError("Pictures need the graphics library; run render as \"tarnbridge-cli render …\".");
    const auto out = args.value("out");
    if (!out)
        throw UsageError("\"render\" needs --out FILE.png or --out FILE.svg.");
    const std::string extension = QString::fromStdString(std::string(PathText::pathExtension(*out))).toLower().toStdString();
    if (extension != "png" && extension != "svg")
        throw UsageError("--out must end in .png or .svg.");
    const StorageView view = viewFrom(args.value("view").value_or("treemap"));
    const QSize size = sizeFrom(args.value("size").value_or("1600x1000"));
    ColorMode color = ColorMode::folder;
    if (const auto mode = args.value("color")) {
        if (*mode == "type")
            color = ColorMode::type;
        else if (*mode == "age")
            color = ColorMode::age;
        else if (*mode != "folder")
            throw UsageError("--color takes folder, type or age.");
    }
    const ScanQuery query = queryFrom(args);
    const int depth = int(args.integer("depth", 7, 1, 9));
    const ScanResult scan = scanFor(args, context, "render");
    const NodeId focus = focusOf(args, scan);
    const bool dark = args.has("dark");

    GraphLayoutInput input = GraphLayoutInput::withPaperColors(scan, scan->path(focus), view, dark);
    input.depth = depth;
    input.logical = query.measure == SizeMeasure::logical;
    input.colorMode = color;
    input.filter = query.text;
    input.showHidden = query.showHidden;
    input.minimumBytes = query.minimumBytes;
    input.categoryFilter = query.category;
    input.modifiedBeforeDays = query.modifiedBeforeDays;
    const GraphScene scene = input.build(QRectF(0, 0, size.width(), size.height()), &context.cancellation);
    context.cancellation.check();
    const bool labels = !args.has("no-labels");
    const QColor background = Paper::theme(dark).background;

    // Through a temporary beside the destination: a failed or stopped render leaves no half picture.
    AtomicFile file(*out);
    if (extension == "png") {
        QImage image(size, QImage::Format_ARGB32_Premultiplied);
        image.fill(background);
        QPainter painter(&image);
        paintScene(painter, scene, labels);
        painter.end();
        QImageWriter writer(QString::fromStdString(file.temporaryPath()), "png");
        if (!writer.write(image))
            throw TarnbridgeError("The picture could not be written: " + writer.errorString().toStdString());
    } else {
        QSvgGenerator svg;
        svg.setFileName(QString::fromStdString(file.temporaryPath()));
        svg.setSize(size);
        svg.setViewBox(QRect(QPoint(0, 0), size));
        svg.setResolution(96);
        svg.setTitle(QStringLiteral("Tarnbridge ") + QString::fromUtf8(rawValue(view).data(), qsizetype(rawValue(view).size())));
        QPainter painter;
        if (!painter.begin(&svg))
            throw TarnbridgeError("The picture could not be written to " + *out + ".");
        painter.fillRect(QRect(QPoint(0, 0), size), background);
        paintScene(painter, scene, labels);
        painter.end();
    }
    file.commit();
    context.out << "Wrote " << shown(*out) << ": " << std::string(rawValue(view)) << " of " << shown(scan->path(focus))
                << ", " << scene.marks.size() << " shapes, " << scene.labels.size() << " labels\n";
    if (scene.marks.empty())
        context.out << "No matching files. Change the size setting or clear your filters.\n";
    return exitOk;
}

} // namespace

std::vector<Command> renderCommands()
{
    std::vector<OptionSpec> options{
        {"out", "FILE", "The picture to write: FILE.png or FILE.svg."},
        {"view", "VIEW", "treemap, sunburst, flame, bubbles or mindmap (default treemap)."},
        {"size", "WxH", "Picture size in pixels (default 1600x1000)."},
        {"depth", "N", "How many folder levels to draw, 1 to 9 (default 7)."},
        {"color", "MODE", "Colour by folder, type or age (default folder)."},
        {"dark", "", "Dark colours."},
        {"no-labels", "", "Leave out the names and sizes."},
        {"focus", "DIR", "The folder at the centre (default: the scanned folder)."},
    };
    for (auto& option : filterOptions())
        if (option.name != "json")
            options.push_back(option);
    return {
        {{"render",
          "PATH --out FILE.png|FILE.svg [--view VIEW] [--size WxH] [--depth N] [--color MODE] [--dark] [--no-labels] "
          "[--focus DIR] [filters]",
          "Draw a chart of a folder as a PNG or SVG picture.",
          options, 0, 1},
         renderCommand},
    };
}

} // namespace tarnbridge::cli
