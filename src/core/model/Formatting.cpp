#include "model/Formatting.h"

#include <QLocale>
#include <QString>

#include <cctype>
#include <cmath>
#include <cstdio>
#include <ctime>

#include "model/Errors.h"

namespace tarnbridge {

std::string formattedBytes(std::int64_t value)
{
    const QLocale locale;
    if (value == 1 || value == -1)
        return locale.toString(qint64(value)).toStdString() + " byte";
    if (std::llabs(value) < 1000)
        return locale.toString(qint64(value)).toStdString() + " bytes";
    static const char* const units[] = {"kB", "MB", "GB", "TB", "PB", "EB"};
    // Fewer decimals for small units, as file managers do: 12 kB, 3.4 MB, 1.25 GB.
    static const int decimals[] = {0, 1, 2, 2, 2, 2};
    double scaled = double(value);
    int unit = -1;
    while (unit < 5 && std::fabs(scaled) >= 1000.0) {
        scaled /= 1000.0;
        ++unit;
    }
    // Rounding may carry into the next unit ("999.96 MB" -> "1,000.0 MB"): step up instead.
    const double factor = std::pow(10.0, decimals[unit]);
    if (unit < 5 && std::round(std::fabs(scaled) * factor) / factor >= 1000.0) {
        scaled /= 1000.0;
        ++unit;
    }
    QString number = locale.toString(scaled, 'f', decimals[unit]);
    if (decimals[unit] > 0) {
        const QString point = locale.decimalPoint();
        while (number.endsWith(QLatin1Char('0')))
            number.chop(1);
        if (number.endsWith(point))
            number.chop(point.size());
    }
    return number.toStdString() + ' ' + units[unit];
}

std::string formattedShare(std::int64_t value, std::int64_t total)
{
    if (total < 1)
        return "—";
    if (value < 1)
        return "0%";
    const double share = double(value) / double(total) * 100.0;
    if (share < 0.1)
        return "<0.1%";
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.1f%%", share);
    return buffer;
}

std::int64_t parseByteCount(const std::string& text)
{
    size_t i = 0;
    while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i])))
        ++i;
    size_t start = i;
    while (i < text.size() && (std::isdigit(static_cast<unsigned char>(text[i])) || text[i] == '.'))
        ++i;
    const std::string number = text.substr(start, i - start);
    while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i])))
        ++i;
    std::string unit;
    for (; i < text.size(); ++i)
        unit.push_back(char(std::tolower(static_cast<unsigned char>(text[i]))));
    char* end = nullptr;
    const double amount = number.empty() ? -1 : std::strtod(number.c_str(), &end);
    double factor = -1;
    if (unit.empty() || unit == "b" || unit == "bytes" || unit == "byte")
        factor = 1;
    else if (unit == "k" || unit == "kb")
        factor = 1e3;
    else if (unit == "m" || unit == "mb")
        factor = 1e6;
    else if (unit == "g" || unit == "gb")
        factor = 1e9;
    else if (unit == "t" || unit == "tb")
        factor = 1e12;
    if (amount < 0 || factor < 0 || (end && *end != '\0') || amount * factor > 9.2e18)
        throw TarnbridgeError("\"" + text + "\" is not a size. Write it like 500KB, 10MB or 2GB.");
    return static_cast<std::int64_t>(std::llround(amount * factor));
}

std::string formattedTime(std::int64_t unixSeconds, const char* format, ClockZone zone)
{
    const std::time_t t = std::time_t(unixSeconds);
    std::tm parts{};
    if (zone == ClockZone::utc)
        ::gmtime_r(&t, &parts);
    else
        ::localtime_r(&t, &parts);
    char text[64];
    return std::strftime(text, sizeof text, format, &parts) ? text : "";
}

} // namespace tarnbridge
