#include "platform/DesktopEntry.h"

#include <algorithm>

#include "model/Errors.h"
#include "model/TextEncoding.h"
#include "platform/ProcFs.h"

namespace tarnbridge {

namespace {

// A desktop entry is a few kilobytes; anything this big is not one.
constexpr std::size_t kLargestEntry = 1 << 20;

bool isSpace(char c)
{
    return c == ' ' || c == '\t';
}

// Desktop entries pad only with spaces and tabs.
constexpr std::string_view kPadding = " \t";

// Keys are ASCII words; launchers accept more than the standard's [A-Za-z0-9-], so only what
// would make the line ambiguous is refused.
bool isKeyName(std::string_view key)
{
    return !key.empty() && std::none_of(key.begin(), key.end(), [](char c) {
        return c == '[' || c == ']' || c == '=' || isSpace(c) ||
               static_cast<unsigned char>(c) < 0x20;
    });
}

[[noreturn]] void malformed(std::size_t line, const std::string& what)
{
    throw TarnbridgeError("Line " + std::to_string(line) + " " + what);
}

} // namespace

DesktopEntry DesktopEntry::parse(std::string_view text)
{
    if (text.size() > kLargestEntry)
        throw TarnbridgeError("The file is too large to be a desktop entry.");
    if (text.find('\0') != std::string_view::npos)
        throw TarnbridgeError("The file holds binary data, not a desktop entry.");
    DesktopEntry entry;
    std::size_t number = 0;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        ++number;
        if (!line.empty() && line.back() == '\r') // written on another system
            line.remove_suffix(1);
        const std::string_view content = trimmed(line, kPadding);
        if (content.empty() || content.front() == '#')
            continue;
        if (content.front() == '[') {
            if (content.back() != ']' || content.size() < 3)
                malformed(number, "is not a complete group header.");
            const std::string_view name = content.substr(1, content.size() - 2);
            if (name.find_first_of("[]") != std::string_view::npos)
                malformed(number, "has a group name with brackets in it.");
            for (const Group& g : entry.groups_)
                if (g.name == name)
                    malformed(number, "repeats the group [" + std::string(name) + "].");
            entry.groups_.push_back({std::string(name), {}});
            continue;
        }
        const std::size_t equals = content.find('=');
        if (equals == std::string_view::npos)
            malformed(number, "is neither a group, a key nor a comment.");
        if (entry.groups_.empty())
            malformed(number, "has a key before the first group.");
        std::string_view key = trimmed(content.substr(0, equals), kPadding);
        // "Name[de]": the locale in brackets belongs to the key.
        std::string_view base = key;
        if (const auto open = key.find('['); open != std::string_view::npos) {
            if (key.back() != ']' || open + 2 > key.size() - 1)
                malformed(number, "has a key with a broken locale.");
            base = key.substr(0, open);
        }
        if (!isKeyName(base))
            malformed(number, "has no valid key name.");
        // Only the spaces around "=" go; the value keeps its own trailing ones.
        std::string_view value = line.substr(line.find('=') + 1);
        while (!value.empty() && isSpace(value.front()))
            value.remove_prefix(1);
        entry.groups_.back().entries.emplace_back(std::string(key), std::string(value));
    }
    return entry;
}

DesktopEntry DesktopEntry::read(const std::string& path)
{
    std::string text;
    if (const int error = platform::readWholeFile(path, text))
        throw systemError(error);
    return parse(text);
}

bool DesktopEntry::hasGroup(std::string_view group) const
{
    return std::any_of(groups_.begin(), groups_.end(),
                       [&](const Group& g) { return g.name == group; });
}

std::optional<std::string> DesktopEntry::raw(std::string_view group, std::string_view key) const
{
    for (const Group& g : groups_) {
        if (g.name != group)
            continue;
        for (auto it = g.entries.rbegin(); it != g.entries.rend(); ++it)
            if (it->first == key)
                return it->second;
    }
    return std::nullopt;
}

std::optional<std::string> DesktopEntry::string(std::string_view group, std::string_view key) const
{
    auto value = raw(group, key);
    if (value)
        return unescape(*value);
    return std::nullopt;
}

std::optional<std::string> DesktopEntry::localeString(std::string_view group, std::string_view key,
                                                      std::string_view locale) const
{
    // lang_COUNTRY.ENCODING@MODIFIER: the encoding plays no part in the match.
    std::string_view modifier;
    if (const auto at = locale.find('@'); at != std::string_view::npos) {
        modifier = locale.substr(at);
        locale = locale.substr(0, at);
    }
    if (const auto dot = locale.find('.'); dot != std::string_view::npos)
        locale = locale.substr(0, dot);
    std::string_view lang = locale;
    std::string_view country;
    if (const auto underscore = locale.find('_'); underscore != std::string_view::npos) {
        lang = locale.substr(0, underscore);
        country = locale.substr(underscore);
    }
    std::vector<std::string> candidates;
    if (!lang.empty() && lang != "C" && lang != "POSIX") {
        if (!country.empty() && !modifier.empty())
            candidates.push_back(std::string(lang) + std::string(country) + std::string(modifier));
        if (!country.empty())
            candidates.push_back(std::string(lang) + std::string(country));
        if (!modifier.empty())
            candidates.push_back(std::string(lang) + std::string(modifier));
        candidates.push_back(std::string(lang));
    }
    for (const std::string& candidate : candidates)
        if (auto value = string(group, std::string(key) + "[" + candidate + "]"))
            return value;
    return string(group, key);
}

bool DesktopEntry::boolean(std::string_view group, std::string_view key, bool fallback) const
{
    const auto value = raw(group, key);
    if (!value)
        return fallback;
    const std::string_view v = trimmed(*value, kPadding);
    if (v == "true" || v == "1")
        return true;
    if (v == "false" || v == "0")
        return false;
    return fallback;
}

std::string DesktopEntry::unescape(std::string_view value)
{
    std::string out;
    out.reserve(value.size());
    for (std::size_t i = 0; i < value.size(); ++i) {
        const char c = value[i];
        if (c != '\\' || i + 1 == value.size()) {
            out += c;
            continue;
        }
        switch (value[i + 1]) {
        case 's':
            out += ' ';
            break;
        case 'n':
            out += '\n';
            break;
        case 't':
            out += '\t';
            break;
        case 'r':
            out += '\r';
            break;
        case '\\':
            out += '\\';
            break;
        default: // "\;" of lists and the Exec escapes are read by their own rules
            out += c;
            continue;
        }
        ++i;
    }
    return out;
}

std::optional<std::vector<std::string>> DesktopEntry::splitExec(std::string_view exec)
{
    std::vector<std::string> args;
    std::string current;
    bool inWord = false;
    for (std::size_t i = 0; i < exec.size(); ++i) {
        const char c = exec[i];
        if (isSpace(c)) {
            if (inWord)
                args.push_back(std::move(current));
            current.clear();
            inWord = false;
            continue;
        }
        inWord = true;
        if (c == '"') {
            // Inside double quotes only ", `, $ and \ are escaped; other backslashes stay.
            bool closed = false;
            for (++i; i < exec.size(); ++i) {
                const char q = exec[i];
                if (q == '"') {
                    closed = true;
                    break;
                }
                if (q == '\\' && i + 1 < exec.size() &&
                    std::string_view("\"`$\\").find(exec[i + 1]) != std::string_view::npos)
                    current += exec[++i];
                else
                    current += q;
            }
            if (!closed)
                return std::nullopt;
        } else if (c == '\'') {
            // Launchers parse the line as a shell would, so single quotes are honoured too.
            const auto close = exec.find('\'', i + 1);
            if (close == std::string_view::npos)
                return std::nullopt;
            current.append(exec.substr(i + 1, close - i - 1));
            i = close;
        } else if (c == '\\' && i + 1 < exec.size()) {
            current += exec[++i];
        } else {
            current += c;
        }
    }
    if (inWord)
        args.push_back(std::move(current));
    if (args.empty())
        return std::nullopt;
    return args;
}

} // namespace tarnbridge
