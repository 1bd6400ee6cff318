#include <unistd.h>

#include <QDateTime>
#include <QLocale>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <thread>

#include "Cli.h"
#include "model/Formatting.h"
#include "monitor/SystemSampler.h"
#include "storage/ScanJson.h"
#include "Terminal.h"

namespace tarnbridge::cli {

namespace {

constexpr std::size_t kProcessRows = 10;     // what fits beside the tiles in a terminal
constexpr std::size_t kJsonProcessRows = 40; // as many as the monitor screen shows

std::string fixed(const char* format, double value)
{
    char text[64];
    std::snprintf(text, sizeof text, format, std::isfinite(value) ? value : 0.0);
    return text;
}

std::string percent(double value)
{
    return fixed("%.1f%%", value);
}

std::string jsonNumber(double value)
{
    return fixed("%.3f", value);
}

std::string quoted(std::string_view bytes)
{
    std::string out;
    ScanJson::appendString(out, bytes);
    return out;
}

std::string uptimeText(double seconds)
{
    const auto total = std::int64_t(seconds);
    const std::int64_t days = total / 86400;
    char clock[32];
    std::snprintf(clock, sizeof clock, "%02lld:%02lld",
                  static_cast<long long>(total % 86400 / 3600),
                  static_cast<long long>(total % 3600 / 60));
    return (days ? std::to_string(days) + (days == 1 ? " day, " : " days, ") : std::string()) +
           clock;
}

std::string sampleJson(const MonitorSample& s)
{
    const double date =
        double(std::chrono::duration_cast<std::chrono::milliseconds>(s.date.time_since_epoch())
                   .count()) /
        1000.0;
    std::string out = "{\"date\":" + jsonNumber(date);
    out += ",\"cpu\":" + jsonNumber(s.cpu);
    out += ",\"userCPU\":" + jsonNumber(s.userCPU);
    out += ",\"systemCPU\":" + jsonNumber(s.systemCPU);
    out += ",\"loadAverages\":[";
    for (std::size_t i = 0; i < s.loadAverages.size(); ++i)
        out.append(i ? "," : "").append(jsonNumber(s.loadAverages[i]));
    out += "],\"uptime\":" + jsonNumber(s.uptime);
    out += ",\"memoryUsed\":" + std::to_string(s.memoryUsed);
    out += ",\"memoryTotal\":" + std::to_string(s.memoryTotal);
    out += ",\"wired\":" + std::to_string(s.wired);
    out += ",\"compressed\":" + std::to_string(s.compressed);
    out += ",\"cached\":" + std::to_string(s.cached);
    out += ",\"download\":" + std::to_string(s.download);
    out += ",\"upload\":" + std::to_string(s.upload);
    out += ",\"received\":" + std::to_string(s.received);
    out += ",\"sent\":" + std::to_string(s.sent);
    out += ",\"processes\":[";
    for (std::size_t i = 0; i < s.processes.size() && i < kJsonProcessRows; ++i) {
        const ProcessInfoRow& p = s.processes[i];
        out += i ? ",{" : "{";
        out += "\"id\":" + std::to_string(p.id) + ",\"name\":" + quoted(p.name) +
               ",\"cpu\":" + jsonNumber(p.cpu) + ",\"memory\":" + std::to_string(p.memory) + "}";
    }
    out += "],\"volumes\":[";
    for (std::size_t i = 0; i < s.volumes.size(); ++i) {
        const VolumeInfo& v = s.volumes[i];
        out += i ? ",{" : "{";
        out += "\"path\":" + quoted(v.path) + ",\"name\":" + quoted(v.name) +
               ",\"total\":" + std::to_string(v.total) + ",\"free\":" + std::to_string(v.free) +
               ",\"used\":" + std::to_string(v.used()) + "}";
    }
    out += "],\"issues\":[";
    for (std::size_t i = 0; i < s.issues.size(); ++i)
        out.append(i ? "," : "").append(quoted(s.issues[i]));
    return out + "]}";
}

std::string bar(double fraction, std::size_t width)
{
    const auto filled = std::size_t(std::lround(std::clamp(fraction, 0.0, 1.0) * double(width)));
    std::string out = "[";
    out.append(filled, '#').append(width - filled, '.').push_back(']');
    return out;
}

void printSample(const MonitorSample& s, std::ostream& out)
{
    const QDateTime when = QDateTime::fromMSecsSinceEpoch(
        std::chrono::duration_cast<std::chrono::milliseconds>(s.date.time_since_epoch()).count());
    out << "Tarnbridge monitor · "
        << QLocale().toString(when.time(), QLocale::LongFormat).toStdString() << " · up "
        << uptimeText(s.uptime) << "\n\n";

    const double load1 = s.loadAverages.empty() ? 0 : s.loadAverages[0];
    out << "CPU      " << percent(s.cpu) << "   USER " << percent(s.userCPU) << "   SYSTEM "
        << percent(s.systemCPU) << "   LOAD " << fixed("%.2f", load1) << "\n";
    out << "         Load (1 / 5 / 15 min): ";
    for (std::size_t i = 0; i < s.loadAverages.size(); ++i)
        out << (i ? " / " : "") << fixed("%.2f", s.loadAverages[i]);
    out << "\n";
    out << "Memory   " << formattedBytes(s.memoryUsed) << "   WIRED " << formattedBytes(s.wired)
        << "   COMPRESSED " << formattedBytes(s.compressed) << "   TOTAL "
        << formattedBytes(s.memoryTotal) << "\n";
    out << "         File-backed pages: " << formattedBytes(s.cached) << "\n";
    out << "Network  DOWN " << formattedBytes(s.download) << "/s   UP " << formattedBytes(s.upload)
        << "/s   SESSION IN " << formattedBytes(s.received) << "\n";
    out << "         This session: " << formattedBytes(s.received) << " received · "
        << formattedBytes(s.sent) << " sent\n";

    out << "\nStorage\n";
    Table volumes({{"", Align::left}, {"", Align::left}, {"", Align::right}, {"", Align::left}});
    for (const VolumeInfo& v : s.volumes)
        volumes.add({shown(v.name), bar(v.fraction(), 20), formattedBytes(v.free) + " free",
                     "of " + formattedBytes(v.total)});
    volumes.print(out, "  ");
    out << "  Free space is what your account can use. Volumes on one pool (btrfs, LVM) may share "
           "space.\n";

    const std::size_t rows = std::min(kProcessRows, s.processes.size());
    out << "\nTop processes by CPU (" << rows << " shown)\n";
    Table processes({{"PROCESS", Align::left}, {"CPU", Align::right}, {"MEMORY", Align::right}});
    for (std::size_t i = 0; i < rows; ++i)
        processes.add({shown(s.processes[i].name), percent(s.processes[i].cpu),
                       formattedBytes(s.processes[i].memory)});
    processes.print(out, "  ");
    for (const std::string& issue : s.issues)
        out << "Note: " << issue << "\n";
}

// Sleeps in short steps so that Ctrl+C is answered at once.
void pause(std::chrono::duration<double> length, const CancellationFlag& cancellation)
{
    const auto until = std::chrono::steady_clock::now() +
                       std::chrono::duration_cast<std::chrono::steady_clock::duration>(length);
    for (;;) {
        cancellation.check();
        const auto left = until - std::chrono::steady_clock::now();
        if (left <= std::chrono::steady_clock::duration::zero())
            return;
        std::this_thread::sleep_for(
            std::min<std::chrono::steady_clock::duration>(left, std::chrono::milliseconds(50)));
    }
}

int monitorCommand(const Arguments& args, Context& context)
{
    double interval = 2;
    if (const auto text = args.value("interval")) {
        char* end = nullptr;
        interval = std::strtod(text->c_str(), &end);
        if (text->empty() || *end != '\0' || !(interval >= 0.1 && interval <= 3600))
            throw UsageError("--interval takes a number of seconds from 0.1 to 3600.");
    }
    const bool once = args.has("once");
    const bool json = args.has("json");
    // Redraw in place only on a real terminal; a pipe or a file gets one block after another.
    const bool redraw = !json && &context.out == &std::cout && ::isatty(STDOUT_FILENO) == 1;

    SystemSampler sampler;
    sampler.sample(); // the counters that the first shown reading's rates are measured from
    // The first reading comes soon, yet late enough that its rates mean something.
    std::chrono::duration<double> wait(std::min(interval, 1.0));
    bool first = true;
    for (;;) {
        pause(wait, context.cancellation);
        wait = std::chrono::duration<double>(interval);
        const MonitorSample sample = sampler.sample();
        if (json) {
            context.out << sampleJson(sample) << '\n';
        } else {
            if (redraw)
                context.out << "\033[H\033[2J";
            else if (!first)
                context.out << "\n";
            printSample(sample, context.out);
            if (!once)
                context.out << (redraw ? "\nCtrl+C to stop.\n" : "");
        }
        context.out << std::flush;
        first = false;
        if (once)
            return exitOk;
    }
}

} // namespace

std::vector<Command> monitorCommands()
{
    return {
        {{"monitor",
          "[--once] [--interval SECONDS] [--json]",
          "Watch CPU, memory, network, the busiest processes and the volumes; Ctrl+C stops.",
          {{"once", "", "Print one reading and stop."},
           {"interval", "SECONDS", "Time between readings (default 2; from 0.1 to 3600)."},
           {"json", "", "One JSON object per reading instead of the screen."}},
          0,
          0},
         monitorCommand},
    };
}

} // namespace tarnbridge::cli
